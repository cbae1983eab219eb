// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <optional>

namespace Common {

/// Adds --version to `app`, which has the program's name, and parses the arguments of main(). Returns the exit status
/// when the program has to end now: 0 after --help and --version, 1 when standard output does not take their text, and
/// 2 for wrong usage, with "NAME: REASON" and a hint at --help on standard error. Nothing when the program goes on.
/// Callbacks of `app` run during the parse, and what they throw passes.
[[nodiscard]] std::optional<int> parseCommandLine(CLI::App& app, int count, char** arguments);

} // namespace Common
