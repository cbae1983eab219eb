// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace sdbus {
class IProxy;
class Variant;
} // namespace sdbus

/// krv-sandbox-service as a child process on the system bus of this one.
class RealService {
public:
  /// Starts the service for the device that begins at `root`, and returns when it can be called. Throws when it ends
  /// instead.
  explicit RealService(const std::filesystem::path& root);

  Support::Process& process() { return m_process; }
  /// What it has written so far, after the line "ready".
  std::string log() const;

private:
  Support::Process m_process;
};

/// The command that starts the service.
std::vector<std::string> serviceCommand(const std::filesystem::path& root);

/// A client of the service that can make all its calls. They throw sdbus::Error.
class ServiceClient {
public:
  using Package = std::map<std::string, std::string>;
  using Options = std::map<std::string, sdbus::Variant>;

  ServiceClient();
  ~ServiceClient();

  Package getPackage(const std::string& name);
  void install(const std::filesystem::path& path);
  void install(const std::filesystem::path& path, const Options& options);
  void remove(const std::string& name);
  std::vector<Package> list();
  /// The names and versions of list(), for example "notes 1.0-1", in its order.
  std::vector<std::string> installed();

  sdbus::IProxy& proxy() { return *m_proxy; }

private:
  std::unique_ptr<sdbus::IProxy> m_proxy;
};

/// The D-Bus error that `call` ends with, as its name, ": " and its message; "no error" when it succeeds.
std::string busErrorOf(const std::function<void()>& call);
