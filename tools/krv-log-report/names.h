// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-log-report/model.h"

#include <string>
#include <string_view>

namespace LogReport {

std::string_view nameOf(Outcome outcome);
std::string_view nameOf(Reason reason); ///< empty for None
std::string_view nameOf(End end);

/// "2026-11-22T12:00:00.000001Z"; empty without a time.
std::string timeText(Time time);

} // namespace LogReport
