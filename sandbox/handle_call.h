// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace Sandbox {

/// Runs `work` for the call that the text `call` describes, and writes the log line of the call. Throws an exception of
/// `work` as an sdbus::Error, which the bus library sends to the caller: a Common::Error with the D-Bus name of its
/// code, any other std::exception as Internal. The reason is cut after 4096 bytes.
void handleCall(const std::string& call, const std::function<void()>& work);

} // namespace Sandbox
