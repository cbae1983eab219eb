// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/environment.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace Support {

/// A message bus of the test's own, which is the system bus of this process and of its children while it lives. It
/// allows everything to everybody and knows no service that it could start until provide() names one.
class PrivateBus {
public:
  /// The bus cuts the connection of who sends it a message of more than `largestMessage` bytes. 32 MiB is what a
  /// dbus-daemon allows that nobody configured.
  explicit PrivateBus(std::size_t largestMessage = 32 * 1024 * 1024);

  const std::string& address() const { return m_address; }

  /// Lets the bus start `program` when the service `name` is asked for and not there.
  void provide(const std::string& name, const std::filesystem::path& program) const;

  /// Ends the bus: every connection is cut, and nobody listens at the address any more.
  void stop();

private:
  TempDirectory m_directory;
  std::unique_ptr<Process> m_daemon;
  std::string m_address;
  std::unique_ptr<ScopedEnvironment> m_systemBus;
};

} // namespace Support
