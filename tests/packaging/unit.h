// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

/// The systemd unit as this build installs it.
std::filesystem::path unitFile();

/// The words of all values that the unit gives a setting, in their order.
std::vector<std::string> valuesInUnit(const std::string& setting);

/// The system calls that the unit leaves to the tool, as systemd on this machine knows their groups. A value that takes
/// calls away begins with "~".
std::set<std::string> systemCallsOfUnit();
