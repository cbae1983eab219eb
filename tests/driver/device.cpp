// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"

#include "tests/support/pki.h"

#include <regex>

Device::Device() {
  std::filesystem::create_directories(preinstallDirectory());
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
  const Support::ProcessResult result = tool.wait();
  Run run{result.status, result.output, std::nullopt};
  static const std::regex pattern(R"((\[I\] Time spent for pre-installation: )(0|[1-9][0-9]*)( seconds\n))");
  std::smatch found;
  if (std::regex_search(result.output, found, pattern)) {
    run.seconds = std::stol(found[2]);
    run.log = found.prefix().str() + found[1].str() + "N" + found[3].str() + found.suffix().str();
  }
  return run;
}

Device::Run Device::run(const Support::Environment& environment, const std::filesystem::path& workingDirectory) {
  return finish(*start(environment, workingDirectory));
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
