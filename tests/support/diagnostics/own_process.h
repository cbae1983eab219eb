// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace Support {

/// For a test that needs a process without the state that other tests leave, for example librpm's configuration. If
/// this process runs other tests too, runs the current test in a new process, expects its success, and returns true.
bool ranInItsOwnProcess();

} // namespace Support
