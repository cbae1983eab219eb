// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>
#include <optional>
#include <string>

/// "YYYY-MM-DDTHH:MM:SSZ".
std::string toText(std::time_t time);

/// The beginning of a day in UTC. `text` must be "YYYY-MM-DD"; otherwise returns nothing.
std::optional<std::time_t> parseDay(const std::string& text);
