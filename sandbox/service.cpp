// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/service.h"

#include "common/error/dbus_error.h"
#include "common/error/error.h"
#include "sandbox/package_store.h"
#include "service/bus_names.h"

#include <sdbus-c++/sdbus-c++.h>

#include <iostream>
#include <map>
#include <string>
#include <system_error>

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace Sandbox {

namespace {

class FileDescriptor {
public:
  explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {
    if (descriptor < 0)
      throw std::system_error(errno, std::generic_category());
  }
  ~FileDescriptor() { close(m_descriptor); }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int get() const { return m_descriptor; }

private:
  int m_descriptor;
};

using Options = std::map<std::string, sdbus::Variant>;

/// Does `work`; what goes wrong reaches the caller under its D-Bus error name.
template <typename Work>
auto answering(Work work) {
  try {
    return work();
  } catch (const Common::Error& error) {
    const auto code = static_cast<Common::ErrorCode>(error.code().value());
    throw sdbus::Error(sdbus::Error::Name(Common::fromCode(code).name), error.what());
  }
}

std::string sourceFrom(const Options& options) {
  const auto found = options.find(BusNames::overrideSourceOption);
  if (found == options.end())
    return {};
  return found->second.get<sdbus::Struct<std::string, std::string>>().get<0>();
}

std::map<std::string, std::string> describe(const std::string& name, const StoredPackage& package) {
  return {{"general.name", name},
          {BusNames::versionKey, package.version},
          {"general.source", package.source},
          {BusNames::developerKeyIdKey, package.developerKeyId},
          {"certificate.subgroup", package.developerSubgroup}};
}

void addMethods(sdbus::IObject& object, PackageStore& store) {
  object
      .addVTable(sdbus::registerMethod(BusNames::getPackage).implementedAs([&store](const std::string& name) {
        return answering([&] { return describe(name, store.get(name)); });
      }),
                 sdbus::registerMethod(BusNames::install)
                     .implementedAs([&store](const std::string& path, const Options& options) {
                       answering([&] { store.install(path, sourceFrom(options)); });
                     }),
                 sdbus::registerMethod("Remove").implementedAs(
                     [&store](const std::string& name) { answering([&] { store.remove(name); }); }))
      .forInterface(BusNames::interface);
}

/// Both are blocked, so that they come through the descriptor alone.
FileDescriptor terminationSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

void processUntilTerminated(sdbus::IConnection& connection, const FileDescriptor& signals) {
  for (pollfd sources[2] = {}; sources[1].revents == 0;) {
    while (connection.processPendingEvent()) {
    }
    const auto bus = connection.getEventLoopPollData();
    sources[0] = {bus.fd, bus.events, 0};
    sources[1] = {signals.get(), POLLIN, 0};
    poll(sources, 2, bus.getPollTimeout());
  }
}

} // namespace

void serve() {
  // First of all, so that no signal is lost that comes once "ready" is out.
  const FileDescriptor signals = terminationSignals();
  PackageStore store;
  const auto connection = sdbus::createSystemBusConnection();
  const auto object = sdbus::createObject(*connection, BusNames::objectPath);
  addMethods(*object, store);
  connection->requestName(BusNames::service);

  std::cout << "ready" << std::endl;
  processUntilTerminated(*connection, signals);
}

} // namespace Sandbox
