// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace Sandbox {

/// Serves "velta.KRV" on the system bus until SIGTERM or SIGINT comes. Writes the line "ready" to standard output once
/// it can be called. Throws sdbus::Error, a std::exception, when there is no bus or the name is taken.
void serve();

} // namespace Sandbox
