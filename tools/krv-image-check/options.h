// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ImageCheck {

enum class Format { Text, Json, Sarif, Html };

/// The values of the command line. Unused fields keep their defaults.
struct Options {
  std::string image = {};
  std::vector<std::string> previous = {};
  std::vector<std::string> removed = {};
  std::optional<std::string> device = {};
  std::optional<std::string> architecture = {};
  std::optional<std::string> caPath = {};
  std::optional<std::chrono::sys_days> at = {}; ///< nothing for today
  std::chrono::days expiryMargin{90};
  std::optional<std::uint64_t> space = {};
  bool deep = false;
  std::optional<std::string> waivers = {};
  Severity failOn = Severity::Error;
  Format format = Format::Text;
  std::optional<std::string> output = {};
  unsigned jobs = 0; ///< 0 for the number of cores
  std::optional<std::string> explainedId = {};
};

/// Adds the options to `app`; parsing fills `options`, which must outlive `app`.
void addOptions(CLI::App& app, Options& options);

/// The day in the form YYYY-MM-DD; nothing if `text` has another form or is no day of the calendar.
std::optional<std::chrono::sys_days> parseDay(const std::string& text);

} // namespace ImageCheck
