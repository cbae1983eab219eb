// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

/// The systemd unit as this build installs it.
std::filesystem::path unitFile();

/// The words of all values of a setting in the unit, in order.
std::vector<std::string> valuesInUnit(const std::string& setting);

/// The system calls that the unit allows, with the groups of this machine's systemd. A value that removes calls begins
/// with "~".
std::set<std::string> systemCallsOfUnit();
