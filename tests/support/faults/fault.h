// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"

#include <string>

namespace Support {

/// The environment of a child process in which the `nth` `call` on a path that contains `path` meets `what`: an
/// errno ("EIO") or a signal ("SIGSTOP"). fault_shim.cpp lists the calls.
Environment fault(const std::string& call, int nth, const std::string& what, const std::string& path);

/// The same for the `nth` call and all later ones.
Environment faultFrom(const std::string& call, int nth, const std::string& what, const std::string& path);

/// The environment of a child process that never waits for the disk.
Environment withoutSyncs();

} // namespace Support
