// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace Sandbox {

/// Serves "velta.KRV" on the system bus until SIGTERM or SIGINT comes; a call that is under way is finished first.
/// Writes the line "ready" to standard output once it can be called. Throws a std::exception when there is no bus, when
/// the name is taken, when the root is unusable or in use, and when the bus goes.
void serve();

} // namespace Sandbox
