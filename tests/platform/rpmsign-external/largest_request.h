// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// The largest memory block that the program has requested since this was set to 0. Replaces the program's `operator
/// new`.
extern std::size_t largestRequest;
