// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// `text` with `to` in every place of `from`.
std::string replaced(std::string text, const std::string& from, const std::string& to);

/// Logs of the tool with N for the numbers of seconds.
std::string withoutTimes(const std::string& log);

/// Registry lines with T for each time.
std::string withoutTimestamps(const std::string& registry);
