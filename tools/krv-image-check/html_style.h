// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace ImageCheck {

/// The style sheet of the HTML report.
extern const std::string_view htmlStyle;

} // namespace ImageCheck
