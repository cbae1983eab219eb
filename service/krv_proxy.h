// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "service/installed_package.h"

#include <memory>
#include <optional>
#include <string>

namespace sdbus {
class IProxy;
}

/// The client of the package-manager service, with its own system-bus connection. It logs every D-Bus failure and
/// returns an empty or false result; no exception for it leaves this class. Calls block until the answer or their time
/// limit; no thread is started. A moved-from proxy can only be destroyed or assigned to.
class KrvProxy {
public:
  /// Connects to the system bus, and asks the bus to start the service if it does not run. After a failure it logs the
  /// library's message as an error line and returns nothing.
  [[nodiscard]] static std::optional<KrvProxy> create();

  ~KrvProxy();
  KrvProxy(KrvProxy&&) noexcept;
  KrvProxy& operator=(KrvProxy&&) noexcept;

  /// The installed package with the name `name`. Empty without a log line if it is not installed; empty with error
  /// lines if the query failed or the answer lacks a field. The caller cannot tell these cases apart. Waits for the
  /// default time limit of the bus library.
  std::optional<InstalledPackage> getPackage(const std::string& name) const;

  /// Asks the service to install the package file `path`, without prompt and notifications and with the source name for
  /// pre-installed applications. Waits up to 300 seconds. Returns false after an error line if it failed.
  [[nodiscard]] bool install(const std::string& path);

private:
  explicit KrvProxy(std::unique_ptr<sdbus::IProxy> proxy);

  std::unique_ptr<sdbus::IProxy> m_proxy;
};
