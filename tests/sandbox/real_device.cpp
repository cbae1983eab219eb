// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/real_device.h"

#include "tests/sandbox/text.h"
#include "tests/support/signing/pki.h"

#include <set>
#include <sstream>
#include <stdexcept>

#include <signal.h>

RealDevice::RealDevice() {
  removeService();
  m_isServedElsewhere = true;
  Support::trustAuthorityUnder(root());
  m_service = std::make_unique<RealService>(root());
}

void RealDevice::reboot() {
  m_service->process().signal(SIGTERM);
  const Support::ProcessResult result = m_service->process().wait();
  if (result.status != 0)
    throw std::runtime_error("the service does not end cleanly: " + result.output + result.errors);
  m_service = std::make_unique<RealService>(root());
}

void RealDevice::clearImage() const {
  for (const std::filesystem::path& entry : entries())
    std::filesystem::remove_all(entry);
}

std::string RealDevice::expectedLog(const std::map<std::string, Lines>& linesOf) const {
  std::string log;
  for (const std::filesystem::path& entry : entries())
    log += linesOf.at(entry.filename())(entry);
  return log + timeLine;
}

std::string RealDevice::database() const {
  std::istringstream output(Support::runOrThrow({"rpm", "--dbpath", root() / "var/lib/rpm", "--query", "--all",
                                                 "--queryformat", "%{NAME} %{VERSION}-%{RELEASE}:[ %{FILENAMES}]\n"}));
  std::set<std::string> lines;
  for (std::string line; std::getline(output, line);)
    lines.insert(line);
  std::string text;
  for (const std::string& line : lines)
    text += line + "\n";
  return text;
}

std::string RealDevice::events() const {
  return withoutTimestamps(Support::readFile(registry()));
}
