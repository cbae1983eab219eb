// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/service.h"

#include "common/posix/file_descriptor.h"
#include "sandbox/bus_object.h"
#include "sandbox/store/package_store.h"
#include "service/bus_names.h"

#include <sdbus-c++/sdbus-c++.h>

#include <cerrno>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

namespace Sandbox {

namespace {

/// Both signals are blocked, so that only the descriptor receives them.
Common::Posix::FileDescriptor terminationSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  Common::Posix::FileDescriptor descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
  if (!descriptor)
    throw std::system_error(errno, std::generic_category());
  return descriptor;
}

std::unique_ptr<sdbus::IConnection> connect() {
  try {
    return sdbus::createSystemBusConnection();
  } catch (const sdbus::Error& error) {
    throw std::runtime_error("Couldn't connect to the system bus: " + error.getMessage());
  }
}

void takeName(sdbus::IConnection& connection) {
  try {
    connection.requestName(BusNames::service);
  } catch (const sdbus::Error& error) {
    if (error.getName() != "org.freedesktop.DBus.Error.FileExists")
      throw;
    throw std::runtime_error("The bus name is taken: " + BusNames::service);
  }
}

void processUntilTerminated(sdbus::IConnection& connection, const Common::Posix::FileDescriptor& signals) {
  for (;;) {
    const bool wasBusy = connection.processPendingEvent();
    const auto bus = connection.getEventLoopPollData();
    pollfd sources[2] = {{bus.fd, bus.events, 0}, {signals.get(), POLLIN, 0}};
    // The signals are checked after every call, so that busy clients cannot keep the service running.
    poll(sources, 2, wasBusy ? 0 : bus.getPollTimeout());
    if (sources[1].revents != 0)
      return;
  }
}

} // namespace

void serve() {
  // First, so that no signal is lost after "ready" was written.
  const Common::Posix::FileDescriptor signals = terminationSignals();
  const auto connection = connect();
  // Before opening the root, which another service uses if it has the name. Calls wait until the object exists.
  takeName(*connection);
  PackageStore store;
  const auto object = exportObject(*connection, store);

  std::cout << "ready" << std::endl;
  try {
    processUntilTerminated(*connection, signals);
  } catch (const sdbus::Error& error) {
    throw std::runtime_error("The connection to the system bus broke: " + error.getMessage());
  }
}

} // namespace Sandbox
