// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <cstddef>
#include <string>

namespace ImageCheck {

/// The number of findings of each severity that are not waived, and of the waived ones.
struct Summary {
  std::size_t errors = 0;
  std::size_t warnings = 0;
  std::size_t notes = 0;
  std::size_t waived = 0;
};

Summary summarize(const Report& report);

/// A text of 32 hexadecimal digits that stays the same from one run to the next as long as the same mistake is there:
/// it depends on the id, the entry and what the finding is about.
std::string fingerprintOf(const Finding& finding);

/// "install", "update", "skip", "refused" or "unreadable".
std::string_view nameOf(Action action);

/// The day as ISO 8601 has it.
std::string dateText(std::chrono::sys_days day);

/// Day and time in UTC, as ISO 8601 has it.
std::string timeText(std::chrono::sys_seconds time);

} // namespace ImageCheck
