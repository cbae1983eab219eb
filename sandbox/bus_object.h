// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace sdbus {
class IConnection;
class IObject;
} // namespace sdbus

namespace Sandbox {

class PackageStore;

/// The object "/velta/KRV" with the interface of docs/velta.KRV.xml, on `connection`; its calls use `store`. Both must
/// outlive it. Each call writes one log line. An error reaches the caller under the D-Bus name of its code, any other
/// exception as Internal; no call ends the service. Throws sdbus::Error.
std::unique_ptr<sdbus::IObject> exportObject(sdbus::IConnection& connection, PackageStore& store);

} // namespace Sandbox
