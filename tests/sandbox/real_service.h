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

/// krv-sandbox-service as a child process on this process's system bus.
class RealService {
public:
  /// Starts the service with the root `root`, and returns when it accepts calls. Throws if it ends.
  explicit RealService(const std::filesystem::path& root);

  Support::Process& process() { return m_process; }
  /// Its output so far, after the line "ready".
  std::string log() const;

private:
  Support::Process m_process;
};

/// The command that starts the service.
std::vector<std::string> serviceCommand(const std::filesystem::path& root);

/// A client for all calls of the service. The calls throw sdbus::Error.
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
  /// The names and versions of list() in its order, for example "notes 1.0-1".
  std::vector<std::string> installed();

  sdbus::IProxy& proxy() { return *m_proxy; }

private:
  std::unique_ptr<sdbus::IProxy> m_proxy;
};

/// The D-Bus error of `call` as name, ": " and message; "no error" if it succeeds.
std::string busErrorOf(const std::function<void()>& call);
