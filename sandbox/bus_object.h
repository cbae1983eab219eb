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

/// The object "/velta/KRV" with the interface that docs/velta.KRV.xml describes, on `connection`; the calls go to
/// `store`. Both must outlive it. Each call is one line of the log. A failure reaches the caller under the D-Bus name
/// of its error code, whatever else is thrown as Internal: no call ends the service. Throws sdbus::Error.
std::unique_ptr<sdbus::IObject> exportObject(sdbus::IConnection& connection, PackageStore& store);

} // namespace Sandbox
