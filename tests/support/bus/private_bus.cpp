// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/private_bus.h"

#include "tests/support/process/wait.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string_view>

#include <signal.h>
#include <systemd/sd-bus.h>

namespace Support {

namespace {

/// A path, escaped for an address, where commas, semicolons and equals signs have a meaning. The result needs no
/// escaping in XML.
std::string escaped(const std::string& path) {
  std::string text;
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isalnum(byte) != 0 || std::string_view("-_/.*").find(character) != std::string_view::npos) {
      text += character;
    } else {
      char hexadecimal[4];
      std::snprintf(hexadecimal, sizeof hexadecimal, "%%%02x", static_cast<unsigned>(byte));
      text += hexadecimal;
    }
  }
  return text;
}

const std::string everythingAllowed = "  <policy context=\"default\">\n"
                                      "    <allow user=\"*\"/>\n"
                                      "    <allow own=\"*\"/>\n"
                                      "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                                      "    <allow receive_sender=\"*\" eavesdrop=\"true\"/>\n"
                                      "  </policy>\n";

/// dbus-daemon resolves the folder of services against the configuration file, dbus-broker against its own folder.
std::string configuration(const std::filesystem::path& socket, const BusSettings& settings) {
  const std::string size = std::to_string(settings.largestMessage);
  return "<busconfig>\n"
         "  <listen>unix:path=" +
         escaped(socket.string()) +
         "</listen>\n"
         "  <auth>EXTERNAL</auth>\n"
         "  <limit name=\"max_message_size\">" +
         size +
         "</limit>\n"
         "  <servicedir>services</servicedir>\n" +
         (settings.policies.empty() ? everythingAllowed : settings.policies) + "</busconfig>\n";
}

int callBus(sd_bus* connection, const char* member, sd_bus_message** reply) {
  return sd_bus_call_method(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", member,
                            nullptr, reply, nullptr);
}

/// The names of the services that the system bus can start. It reloads first, because the bus misses changes of the
/// folder made while it starts.
std::set<std::string> startableServices() {
  sd_bus* bus = nullptr;
  sd_bus_message* reply = nullptr;
  char** names = nullptr;
  if (sd_bus_open_system(&bus) < 0 || callBus(bus, "ReloadConfig", nullptr) < 0 ||
      callBus(bus, "ListActivatableNames", &reply) < 0 || sd_bus_message_read_strv(reply, &names) < 0)
    throw std::runtime_error("the message bus does not list its services");
  std::set<std::string> result;
  for (char** name = names; name != nullptr && *name != nullptr; ++name) {
    result.insert(*name);
    std::free(*name);
  }
  std::free(names);
  sd_bus_message_unref(reply);
  sd_bus_close_unref(bus);
  return result;
}

} // namespace

bool isInstalled(BusProgram program) {
  const char* const name = program == BusProgram::DbusBroker ? "dbus-broker-launch" : "dbus-daemon";
  return run({name, "--version"}).status == 0;
}

namespace {

BusTexts textsOfBroker(const char* deadService) {
  return {.noService = "The name is not activatable",
          .deadService = deadService,
          .noReply = "Remote peer disconnected",
          .denied = "Sender is not authorized to send message"};
}

const BusTexts textsOfDaemon = {.noService = "The name velta.KRV was not provided by any .service files",
                                .deadService = "Process velta.KRV exited with status 1",
                                .noReply = "Message recipient disconnected from message bus without replying",
                                .denied = "Rejected send message, [^\n]* destination=\"velta\\.KRV\" [^\n]*"};
const BusTexts textsOfBroker33 = textsOfBroker("Could not activate remote peer: startup job failed.");
const BusTexts textsOfBroker37 = textsOfBroker("Could not activate remote peer 'velta.KRV': startup job failed");

int versionOfBroker() {
  const std::string version = runOrThrow({"dbus-broker-launch", "--version"}); // "dbus-broker-launch 33"
  return std::stoi(version.substr(version.find(' ') + 1));
}

} // namespace

BusTexts textsOf(BusProgram program) {
  if (program == BusProgram::DbusDaemon)
    return textsOfDaemon;
  return versionOfBroker() < 37 ? textsOfBroker33 : textsOfBroker37;
}

std::vector<BusTexts> textsOfEveryBus() {
  return {textsOfDaemon, textsOfBroker33, textsOfBroker37};
}

// SIGKILL, because dbus-daemon would clean up on SIGTERM; the bus must disappear as in a crash.
PrivateBus::PrivateBus(const BusSettings& settings)
    : m_end(settings.program == BusProgram::DbusBroker ? SIGTERM : SIGKILL) {
  const std::filesystem::path configurationFile = m_directory / "bus.conf";
  writeFile(configurationFile, configuration(socket(), settings));
  std::filesystem::create_directory(m_directory / "services");
  if (settings.program == BusProgram::DbusBroker) {
    m_daemon = std::make_unique<Process>(
        std::vector<std::string>{program("test-broker"), configurationFile, socket()},
        Environment{{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + escaped(socket().string())}}, m_directory.path());
  } else {
    m_daemon = std::make_unique<Process>(std::vector<std::string>{
        "dbus-daemon", "--nofork", "--nopidfile", "--print-address", "--config-file=" + configurationFile.string()});
  }
  // Both print the address when they listen.
  waitUntil([this] { return !m_daemon->isRunning() || m_daemon->outputSoFar().ends_with('\n'); });
  m_address = m_daemon->outputSoFar();
  if (!m_address.ends_with('\n'))
    throw std::runtime_error("the message bus does not start: " + m_daemon->wait().errors);
  m_address.pop_back();
  m_systemBus = std::make_unique<ScopedEnvironment>("DBUS_SYSTEM_BUS_ADDRESS", m_address);
}

// SIGKILL for test-broker would leave its children running.
PrivateBus::~PrivateBus() {
  m_daemon->signal(m_end);
  waitUntil([this] { return !m_daemon->isRunning(); });
}

void PrivateBus::provide(const std::string& name, const std::filesystem::path& program) const {
  // The bus watches the folder, so the file must appear complete.
  const std::filesystem::path unfinished = m_directory / "unfinished";
  writeFile(unfinished, "[D-BUS Service]\nName=" + name + "\nExec=\"" + program.string() + "\"\n");
  std::filesystem::rename(unfinished, m_directory / "services" / (name + ".service"));
  if (!waitUntil([&] { return startableServices().contains(name); }))
    throw std::runtime_error("the message bus does not see the service");
}

void PrivateBus::stop() {
  m_daemon->signal(m_end);
  m_daemon->wait();
}

} // namespace Support
