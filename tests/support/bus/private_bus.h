// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/environment.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Support {

/// The system bus programs; most devices have one of them.
enum class BusProgram { DbusDaemon, DbusBroker };

/// Whether this machine has the program.
bool isInstalled(BusProgram program);

/// The error texts of a bus, exact except for the last.
struct BusTexts {
  std::string noService;   ///< the service is unknown
  std::string deadService; ///< the service's program exits with status 1 without taking the name
  std::string noReply;     ///< the service disconnects without an answer
  std::string denied;      ///< the policy denies the call; a regular expression
};
BusTexts textsOf(BusProgram program);

/// The texts of all buses, including those that are not installed.
std::vector<BusTexts> textsOfEveryBus();

struct BusSettings {
  BusProgram program = BusProgram::DbusDaemon;
  /// The bus disconnects a client that sends a larger message, in bytes. 32 MiB is dbus-daemon's default. dbus-broker
  /// ignores the setting.
  std::size_t largestMessage = 32 * 1024 * 1024;
  /// Elements of the bus's configuration, see dbus-daemon(1). By default everything is allowed.
  std::string policies = {};
};

/// A message bus for a test. While it lives, it is the system bus of this process and its children. It can start a
/// service only after provide().
class PrivateBus {
public:
  explicit PrivateBus(const BusSettings& settings = {});
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  const std::string& address() const { return m_address; }
  std::filesystem::path socket() const { return m_directory / "socket"; }

  /// The bus starts `program` if the service `name` is requested and not running.
  void provide(const std::string& name, const std::filesystem::path& program) const;

  /// Stops the bus: all connections are closed, and nobody listens at the address.
  void stop();

private:
  int m_end; ///< the signal that stops the bus
  TempDirectory m_directory;
  std::unique_ptr<Process> m_daemon;
  std::string m_address;
  std::unique_ptr<ScopedEnvironment> m_systemBus;
};

} // namespace Support
