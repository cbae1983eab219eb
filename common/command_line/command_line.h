// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <optional>

namespace Common {

/// Adds --version to `app`, whose name must be the program's name, and parses the arguments of main(). Returns the exit
/// status if the program must end now: 0 after --help and --version, 1 if their text cannot be written to standard
/// output, 2 after wrong usage, with "NAME: REASON" and a hint at --help on standard error. Otherwise returns nothing.
/// Callbacks of `app` run during the parse; their exceptions reach the caller.
[[nodiscard]] std::optional<int> parseCommandLine(CLI::App& app, int count, char** arguments);

} // namespace Common
