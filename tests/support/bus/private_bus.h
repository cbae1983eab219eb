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

/// The programs that are the system bus of a device: most have one of them or the other.
enum class BusProgram { DbusDaemon, DbusBroker };

/// Whether this machine has it.
bool isInstalled(BusProgram program);

/// What the two say in the place of a service, letter for letter but for the last.
struct BusTexts {
  std::string noService;   ///< nobody provides it
  std::string deadService; ///< the program that provides it ends with status 1 instead of taking the name
  std::string noReply;     ///< it leaves without an answer
  std::string denied;      ///< the policy does not let the caller talk to it; a regular expression
};
BusTexts textsOf(BusProgram program);

/// Those of the buses that this machine does not have, too.
std::vector<BusTexts> textsOfEveryBus();

struct BusSettings {
  BusProgram program = BusProgram::DbusDaemon;
  /// The bus cuts the connection of who sends it a message of more bytes. 32 MiB is what a dbus-daemon allows that
  /// nobody configured. dbus-broker does not look at it.
  std::size_t largestMessage = 32 * 1024 * 1024;
  /// Elements of the bus's configuration; see dbus-daemon(1). Without any, everybody may do everything.
  std::string policies = {};
};

/// A message bus of the test's own, which is the system bus of this process and of its children while it lives. It
/// knows no service that it could start until provide() names one.
class PrivateBus {
public:
  explicit PrivateBus(const BusSettings& settings = {});
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  const std::string& address() const { return m_address; }
  std::filesystem::path socket() const { return m_directory / "socket"; }

  /// Lets the bus start `program` when the service `name` is asked for and not there.
  void provide(const std::string& name, const std::filesystem::path& program) const;

  /// Ends the bus: every connection is cut, and nobody listens at the address any more.
  void stop();

private:
  int m_end; ///< the signal that ends the bus
  TempDirectory m_directory;
  std::unique_ptr<Process> m_daemon;
  std::string m_address;
  std::unique_ptr<ScopedEnvironment> m_systemBus;
};

} // namespace Support
