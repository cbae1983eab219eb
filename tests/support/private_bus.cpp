// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/private_bus.h"

#include "tests/support/wait.h"

#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <string_view>

namespace Support {

namespace {

/// A path as an address holds it, where commas, semicolons and equals signs have a meaning. Nothing remains that XML
/// would have to escape either.
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

/// The folder of services is relative to the configuration file.
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

} // namespace

PrivateBus::PrivateBus(const BusSettings& settings) {
  const std::filesystem::path configurationFile = m_directory / "bus.conf";
  writeFile(configurationFile, configuration(socket(), settings));
  std::filesystem::create_directory(m_directory / "services");
  m_daemon = std::make_unique<Process>(std::vector<std::string>{
      "dbus-daemon", "--nofork", "--nopidfile", "--print-address", "--config-file=" + configurationFile.string()});
  // The daemon prints the address once it listens there.
  waitUntil([this] { return !m_daemon->isRunning() || m_daemon->outputSoFar().ends_with('\n'); });
  m_address = m_daemon->outputSoFar();
  if (!m_address.ends_with('\n'))
    throw std::runtime_error("the message bus does not start: " + m_daemon->wait().errors);
  m_address.pop_back();
  m_systemBus = std::make_unique<ScopedEnvironment>("DBUS_SYSTEM_BUS_ADDRESS", m_address);
}

void PrivateBus::provide(const std::string& name, const std::filesystem::path& program) const {
  // The daemon watches the folder: it must not find the file half-written.
  const std::filesystem::path unfinished = m_directory / "unfinished";
  writeFile(unfinished, "[D-BUS Service]\nName=" + name + "\nExec=\"" + program.string() + "\"\n");
  std::filesystem::rename(unfinished, m_directory / "services" / (name + ".service"));
}

void PrivateBus::stop() {
  m_daemon.reset();
}

} // namespace Support
