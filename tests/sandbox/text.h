// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// `text` with each `from` replaced by `to`.
std::string replaced(std::string text, const std::string& from, const std::string& to);

/// A log of the tool with N for the numbers of seconds.
std::string withoutTimes(const std::string& log);

/// Registry lines with T for each timestamp.
std::string withoutTimestamps(const std::string& registry);
