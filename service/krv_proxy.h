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

/// The client of the package-manager service, over a system-bus connection of its own. Every D-Bus failure ends here:
/// it is logged and becomes an empty or false result. Calls block until the answer or their time limit; no thread is
/// started. A moved-from proxy can only be destroyed or assigned to.
class KrvProxy {
public:
  /// Connects to the system bus and makes sure that the service is there, starting it if the bus knows how to.
  /// Failure: the library's message as an error line, and nothing is returned.
  static std::optional<KrvProxy> create();

  ~KrvProxy();
  KrvProxy(KrvProxy&&) noexcept;
  KrvProxy& operator=(KrvProxy&&) noexcept;

  /// What is installed under the package name `name`. Empty for a package that is not installed, without a line, and
  /// for a query that failed or an answer that lacks a field, with error lines: the caller cannot tell them apart.
  /// Waits as long as the bus library does by default.
  std::optional<InstalledPackage> getPackage(const std::string& name) const;

  /// Asks the service to install the package file `path`, without prompt and notifications and in the name of the
  /// source of pre-installed applications. Waits up to 300 seconds. False, after an error line, when it failed.
  bool install(const std::string& path);

private:
  explicit KrvProxy(std::unique_ptr<sdbus::IProxy> proxy);

  std::unique_ptr<sdbus::IProxy> m_proxy;
};
