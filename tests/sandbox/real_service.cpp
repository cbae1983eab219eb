// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/real_service.h"

#include "service/bus_names.h"
#include "tests/support/process/wait.h"

#include <sdbus-c++/sdbus-c++.h>

#include <stdexcept>
#include <string_view>

namespace {

constexpr std::string_view ready = "ready\n";

} // namespace

std::vector<std::string> serviceCommand(const std::filesystem::path& root) {
  return {Support::program("krv-sandbox-service"), "--root", root};
}

RealService::RealService(const std::filesystem::path& root) : m_process(serviceCommand(root)) {
  Support::waitUntil([this] { return !m_process.isRunning() || m_process.outputSoFar().starts_with(ready); });
  if (!m_process.outputSoFar().starts_with(ready))
    throw std::runtime_error("the service does not start: " + m_process.outputSoFar());
}

std::string RealService::log() const {
  return m_process.outputSoFar().substr(ready.size());
}

ServiceClient::ServiceClient()
    : m_proxy(sdbus::createProxy(sdbus::createSystemBusConnection(), BusNames::service, BusNames::objectPath,
                                 sdbus::dont_run_event_loop_thread)) {}

ServiceClient::~ServiceClient() = default;

ServiceClient::Package ServiceClient::getPackage(const std::string& name) {
  Package package;
  m_proxy->callMethod("GetPackage").onInterface(BusNames::interface).withArguments(name).storeResultsTo(package);
  return package;
}

void ServiceClient::install(const std::filesystem::path& path) {
  install(path, {});
}

void ServiceClient::install(const std::filesystem::path& path, const Options& options) {
  m_proxy->callMethod("Install")
      .onInterface(BusNames::interface)
      .withArguments(path.string(), options)
      .storeResultsTo();
}

void ServiceClient::remove(const std::string& name) {
  m_proxy->callMethod("Remove").onInterface(BusNames::interface).withArguments(name).storeResultsTo();
}

std::vector<ServiceClient::Package> ServiceClient::list() {
  std::vector<Package> packages;
  m_proxy->callMethod("List").onInterface(BusNames::interface).storeResultsTo(packages);
  return packages;
}

std::vector<std::string> ServiceClient::installed() {
  std::vector<std::string> packages;
  for (const Package& package : list())
    packages.push_back(package.at("general.name") + " " + package.at("general.version"));
  return packages;
}

std::string busErrorOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const sdbus::Error& error) {
    return error.getName() + ": " + error.getMessage();
  }
  return "no error";
}
