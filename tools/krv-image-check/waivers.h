// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/findings.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace ImageCheck {

/// One line of a file of waivers: findings that the builder of the image accepts until a day.
struct Waiver {
  std::size_t line;
  std::string id;
  std::string entryPattern; ///< a shell pattern; "image" stands for the image itself
  std::chrono::sys_days until;
  std::string reason;
};

/// Reads a file with one waiver per line: "ID ENTRY-PATTERN until=YYYY-MM-DD reason=TEXT". Empty lines and lines that
/// begin with "#" are skipped. Throws UsageError with file and line number for any other line, and if the file cannot
/// be read.
std::vector<Waiver> readWaivers(const std::string& path);

/// Marks the findings that a waiver matches. Adds findings about waivers that are expired, refused or not used.
void applyWaivers(const std::vector<Waiver>& waivers, std::chrono::sys_days at, Findings& findings);

} // namespace ImageCheck
