// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/bus/private_bus.h"
#include "tests/support/bus/scripted_service.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/process.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A device in a temporary folder for tests of the whole tool: root folder, bus and package-manager service. The real
/// tool runs as a child process.
class Device {
public:
  struct Run {
    int status;
    std::string log;             ///< standard output, with N for the number of seconds
    std::optional<long> seconds; ///< that number; nothing without such a line
  };

  /// Whether the programs are built with AddressSanitizer.
  static bool isSanitized();

  explicit Device(const Support::BusSettings& bus = {});

  std::filesystem::path root() const { return m_rpm.path() / "root"; }
  std::filesystem::path preinstallDirectory() const { return root() / "usr/share/krv/pre-install-apps"; }
  std::filesystem::path registry() const { return root() / "var/lib/krv/registry"; }
  /// The entries of the pre-install directory in the order of the listing.
  std::vector<std::filesystem::path> entries() const;

  /// Builds a package from `input`, signs it as `developer` of the PKI (unsigned if empty) with the earlier keys
  /// `previous`, oldest first, and puts it into the pre-install directory.
  std::filesystem::path add(const Support::PackageInput& input, const std::string& developer = "alice",
                            const std::vector<std::string>& previous = {}, const std::string& fileName = {});

  /// Runs the tool to its end.
  Run run(const Support::Environment& environment = {}, const std::filesystem::path& workingDirectory = ".");
  /// Runs the tool with a limit of 64 descriptors and `megabytes` of address space (without the memory limit under
  /// AddressSanitizer, which needs terabytes).
  Run runWithin(std::size_t megabytes);
  /// Starts the tool; finish() waits for its end.
  std::unique_ptr<Support::Process> start(const Support::Environment& environment = {},
                                          const std::filesystem::path& workingDirectory = ".");
  Run finish(Support::Process& tool);
  /// Also compares krv-log-report's rows for the log with the calls that the scripted services got.
  Run runOf(const Support::ProcessResult& result);

  Support::RpmSandbox& rpm() { return m_rpm; }
  Support::PrivateBus& bus() { return m_bus; }
  Support::ScriptedService& service() const { return *m_service; }
  void removeService() { m_service.reset(); }

protected:
  /// A service in another process installs the packages, so that its calls are not known.
  bool m_isServedElsewhere = false;

private:
  Support::RpmSandbox m_rpm;
  Support::PrivateBus m_bus;
  std::unique_ptr<Support::ScriptedService> m_service = std::make_unique<Support::ScriptedService>();
};

/// Expected lines of the log.
inline const std::string timeLine = "[I] Time spent for pre-installation: N seconds\n";
std::string quoted(const std::filesystem::path& path);
std::string installedLine(const std::filesystem::path& path);
std::string failedLine(const std::filesystem::path& path);
std::string skippedLine(const std::filesystem::path& path);
std::string unreadableLines(const std::string& reason, const std::filesystem::path& path);
