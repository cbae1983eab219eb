// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"

#include "tests/driver/report_of_calls.h"
#include "tests/support/signing/pki.h"

#include <algorithm>

bool Device::isSanitized() {
#if defined(__SANITIZE_ADDRESS__) // gcc's macro; __has_feature is clang's
  return true;
#elif defined(__has_feature)
  return __has_feature(address_sanitizer);
#else
  return false;
#endif
}

Device::Device(const Support::BusSettings& bus) : m_bus(bus) {
  std::filesystem::create_directories(preinstallDirectory());
  // Drops the calls of earlier tests in this process. runOf() would take them for calls of this device.
  static_cast<void>(Support::ScriptedService::takeInstallations());
}

std::vector<std::filesystem::path> Device::entries() const {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(preinstallDirectory()))
    paths.push_back(entry.path());
  return paths;
}

std::filesystem::path Device::add(const Support::PackageInput& input, const std::string& developer,
                                  const std::vector<std::string>& previous, const std::string& fileName) {
  const std::filesystem::path path = preinstallDirectory() / (fileName.empty() ? input.name + ".rpm" : fileName);
  m_rpm.build(input, path);
  if (!developer.empty())
    Support::sign(path, developer, previous);
  return path;
}

std::unique_ptr<Support::Process> Device::start(const Support::Environment& environment,
                                                const std::filesystem::path& workingDirectory) {
  Support::Environment all{{"KRV_ROOT_FS", root().string()}};
  for (const auto& [name, value] : environment)
    all[name] = value;
  return std::make_unique<Support::Process>(std::vector{Support::program("krv-pre-installer").string()}, all,
                                            workingDirectory);
}

Device::Run Device::finish(Support::Process& tool) {
  return runOf(tool.wait());
}

Device::Run Device::runOf(const Support::ProcessResult& result) {
  if (!m_isServedElsewhere)
    expectReportOfCalls(result.output, Support::ScriptedService::takeInstallations());
  Run run{result.status, result.output, std::nullopt};
  const std::string start = "[I] Time spent for pre-installation: ";
  const std::size_t line = run.log.rfind(start);
  if (line == std::string::npos)
    return run;
  const std::size_t number = line + start.size();
  const std::size_t digits = std::min(run.log.find_first_not_of("0123456789", number), run.log.size()) - number;
  const bool isPlain = digits == 1 || (digits > 1 && run.log[number] != '0');
  if (isPlain && run.log.substr(number + digits).starts_with(" seconds\n")) {
    run.seconds = std::stol(run.log.substr(number, digits));
    run.log.replace(number, digits, "N");
  }
  return run;
}

Device::Run Device::run(const Support::Environment& environment, const std::filesystem::path& workingDirectory) {
  return finish(*start(environment, workingDirectory));
}

Device::Run Device::runWithin(std::size_t megabytes) {
  const std::string memory = isSanitized() ? "unlimited" : std::to_string(megabytes * 1024);
  Support::Process tool(
      {"sh", "-c", "ulimit -n 64 && ulimit -v " + memory + " && exec \"$0\"", Support::program("krv-pre-installer")},
      {{"KRV_ROOT_FS", root().string()}});
  return finish(tool);
}

std::string quoted(const std::filesystem::path& path) {
  std::string text = "\"";
  for (const char character : path.string()) {
    if (character == '"' || character == '\\')
      text += '\\';
    text += character;
  }
  return text + "\"";
}

std::string installedLine(const std::filesystem::path& path) {
  return "[I] The package successfully pre-installed: " + quoted(path) + "\n";
}

std::string failedLine(const std::filesystem::path& path) {
  return "[E] Failed to pre-install package: " + quoted(path) + "\n";
}

std::string skippedLine(const std::filesystem::path& path) {
  return "[I] Skipping package pre-installation: " + quoted(path) + "\n";
}

std::string unreadableLines(const std::string& reason, const std::filesystem::path& path) {
  return "[E] " + reason + "\n[E] Failed to read RPM package: " + quoted(path) + "\n" + skippedLine(path);
}
