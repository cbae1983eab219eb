// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/preload.h"
#include "tests/support/process/process.h"
#include "tests/support/process/wait.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

namespace {

using Bus = std::unique_ptr<sd_bus, decltype(&sd_bus_close_unref)>;
using Event = std::unique_ptr<sd_event, decltype(&sd_event_unref)>;

constexpr const char* job = "/org/freedesktop/systemd1/job/1";

int check(int result, const char* action) {
  if (result < 0)
    throw std::system_error(-result, std::generic_category(), action);
  return result;
}

int checkCall(int result, const char* action) {
  return check(result < 0 ? -errno : result, action);
}

int listenAt(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path)
    check(-ENAMETOOLONG, "socket");
  path.copy(address.sun_path, path.size());
  const int listener = checkCall(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  checkCall(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
  checkCall(listen(listener, SOMAXCONN), "listen");
  return listener;
}

/// Starts the launcher, which starts the bus. The socket is passed as systemd does it, see sd_listen_fds(3).
std::unique_ptr<Support::Process> launch(const std::string& configuration, const std::string& socket) {
  const int listener = listenAt(socket);
  Support::Environment environment = Support::preloading(KRV_JOURNAL_SHIM);
  environment["LISTEN_FDS"] = "1";
  auto launcher = std::make_unique<Support::Process>(
      std::vector<std::string>{"sh", "-c", "LISTEN_PID=$$ exec dbus-broker-launch --config-file=\"$0\"", configuration},
      environment, ".", [listener] {
        if (dup2(listener, 3) == listener)
          fcntl(listener, F_SETFD, 0);
      });
  close(listener);
  return launcher;
}

/// Replaces systemd for the launcher: starts services, one at a time, and reports a service that ends without taking
/// its name on the bus.
class Starter {
public:
  explicit Starter(sd_bus* bus) : m_bus(bus) {
    check(sd_bus_add_filter(bus, nullptr, &onMessage, this), "filter");
    check(sd_event_add_signal(sd_bus_get_event(bus), nullptr, SIGCHLD, &onEnd, this), "SIGCHLD");
    check(sd_bus_request_name(bus, "org.freedesktop.systemd1", 0), "name");
  }

private:
  static int onMessage(sd_bus_message* message, void* self, sd_bus_error*) {
    constexpr const char* manager = "org.freedesktop.systemd1.Manager";
    if (sd_bus_message_is_method_call(message, manager, "LoadUnit") > 0)
      return sd_bus_reply_method_return(message, "o", "/org/freedesktop/systemd1/unit/service");
    if (sd_bus_message_is_method_call(message, manager, "StartTransientUnit") <= 0)
      return 0;
    static_cast<Starter*>(self)->start(message);
    return sd_bus_reply_method_return(message, "o", job);
  }

  static int onEnd(sd_event_source*, const signalfd_siginfo*, void* self) {
    static_cast<Starter*>(self)->look();
    return 0;
  }

  void start(sd_bus_message* call) {
    const char* unit = nullptr;
    check(sd_bus_message_read(call, "ss", &unit, nullptr), "unit");
    m_unit = unit;
    // The child inherits the blocked signals of this program.
    m_service = std::make_unique<Support::Process>(std::vector{programOf(call)}, Support::Environment{}, ".", [] {
      sigset_t none;
      sigemptyset(&none);
      sigprocmask(SIG_SETMASK, &none, nullptr);
    });
  }

  /// The program in the property ExecStart. The test services have no arguments.
  static std::string programOf(sd_bus_message* call) {
    check(sd_bus_message_enter_container(call, 'a', "(sv)"), "properties");
    while (check(sd_bus_message_enter_container(call, 'r', "sv"), "property") > 0) {
      const char* text = nullptr;
      check(sd_bus_message_read(call, "s", &text), "name of a property");
      if (text == std::string("ExecStart")) {
        check(sd_bus_message_enter_container(call, 'v', "a(sasb)"), "value");
        check(sd_bus_message_enter_container(call, 'a', "(sasb)"), "commands");
        check(sd_bus_message_enter_container(call, 'r', "sasb"), "command");
        check(sd_bus_message_read(call, "s", &text), "program");
        return text;
      }
      check(sd_bus_message_skip(call, "v"), "value");
      check(sd_bus_message_exit_container(call), "end of a property");
    }
    throw std::runtime_error("a unit without ExecStart");
  }

  void look() {
    if (!m_service || m_service->isRunning())
      return;
    const char* const outcome = m_service->wait().status == 0 ? "done" : "failed";
    m_service.reset();
    check(sd_bus_emit_signal(m_bus, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager", "JobRemoved",
                             "uoss", 1, job, m_unit.c_str(), outcome),
          "JobRemoved");
  }

  sd_bus* m_bus;
  std::unique_ptr<Support::Process> m_service;
  std::string m_unit;
};

Event newEvent() {
  sigset_t waitedFor;
  sigemptyset(&waitedFor);
  sigaddset(&waitedFor, SIGCHLD);
  sigaddset(&waitedFor, SIGTERM);
  checkCall(sigprocmask(SIG_BLOCK, &waitedFor, nullptr), "sigprocmask");
  sd_event* event = nullptr;
  check(sd_event_new(&event), "event loop");
  Event owner(event, &sd_event_unref);
  check(sd_event_add_signal(event, nullptr, SIGTERM, nullptr, nullptr), "SIGTERM"); // ends the loop
  return owner;
}

Bus connect(sd_event* event) {
  sd_bus* bus = nullptr;
  check(sd_bus_open_system(&bus), "connection");
  Bus owner(bus, &sd_bus_close_unref);
  check(sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL), "event loop");
  return owner;
}

/// The number of connections.
std::size_t connections(sd_bus* bus) {
  sd_bus_message* answer = nullptr;
  check(sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames",
                           nullptr, &answer, nullptr),
        "ListNames");
  const std::unique_ptr<sd_bus_message, sd_bus_message* (*)(sd_bus_message*)> owner(answer, &sd_bus_message_unref);
  check(sd_bus_message_enter_container(answer, 'a', "s"), "names");
  std::size_t count = 0;
  for (const char* name = nullptr; check(sd_bus_message_read(answer, "s", &name), "name") > 0;)
    count += name[0] == ':' ? 1 : 0;
  return count;
}

/// Returns on SIGTERM.
void serve() {
  const Event event = newEvent();
  const Bus bus = connect(event.get());
  // The launcher is a client of the bus too. A test that overhears the bus must not find it connecting.
  if (!Support::waitUntil([&] { return connections(bus.get()) >= 2; }))
    throw std::runtime_error("the launcher does not connect to its bus");
  const Starter starter(bus.get());
  std::cout << std::getenv("DBUS_SYSTEM_BUS_ADDRESS") << std::endl;
  check(sd_event_loop(event.get()), "loop");
}

/// Returns after SIGTERM, when all started processes have ended.
void runBus(const std::string& configuration, const std::string& socket) {
  // The bus is a grandchild; as a subreaper this program notices its end too.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  auto launcher = launch(configuration, socket);
  try {
    serve();
  } catch (const std::exception& error) {
    throw std::runtime_error(error.what() + (launcher->isRunning() ? "" : "\n" + launcher->wait().errors));
  }
  launcher.reset();
  while (wait(nullptr) > 0) {
  }
}

} // namespace

/// usage: DBUS_SYSTEM_BUS_ADDRESS=ADDRESS test-broker CONFIGURATION SOCKET
///
/// A system bus with dbus-broker. It replaces systemd, from which dbus-broker gets its socket, its log and started
/// services. Prints the address when the bus answers. Ends with SIGTERM, together with all processes that it started.
int main(int, char** arguments) {
  try {
    runBus(arguments[1], arguments[2]);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
