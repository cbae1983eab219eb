// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// The largest block of memory that the program asked for since this was set to 0. The program's `operator new` is
/// replaced to that end.
extern std::size_t largestRequest;
