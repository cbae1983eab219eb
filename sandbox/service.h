// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace Sandbox {

/// Serves "velta.KRV" on the system bus until SIGTERM or SIGINT; a running call is finished first. Writes the line
/// "ready" to standard output when it accepts calls. Throws a std::exception if there is no bus, the name is taken, the
/// root is unusable or in use, or the bus disconnects.
void serve();

} // namespace Sandbox
