// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"

#include <string>

namespace Support {

/// The environment of a child process that makes the `nth` `call` on a path that contains `path` fail with an errno
/// ("EIO"), or sends a signal before it ("SIGSTOP"). fault_shim.cpp lists the calls.
Environment fault(const std::string& call, int nth, const std::string& what, const std::string& path);

} // namespace Support
