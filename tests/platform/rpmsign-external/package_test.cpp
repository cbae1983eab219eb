// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"

#include "tests/support/process.h"

using PackageSignatures::Cms;
using PackageSignatures::FileWithCmses;
using PackageSignatures::PackageLayout;

PackageTest::PackageTest() : m_package(inSandbox("sample.rpm")) {
  m_sandbox.build({}, m_package);
  const auto offset = static_cast<std::size_t>(PackageSignatures::packageLayout(m_package).contentOffset);
  Support::writeFile(inSandbox("content"), Support::readFile(m_package).substr(offset));
}

std::string PackageTest::container() const {
  std::string bytes;
  for (const PackageLayout::Range& range : PackageSignatures::packageLayout(package()).cmses)
    bytes += Support::readFile(package()).substr(static_cast<std::size_t>(range.offset), range.size);
  return bytes;
}

bool PackageTest::verifies() const {
  const auto file = FileWithCmses::fromPath(package());
  return file && file->verifyCmses(pki().trustedCa().c_str());
}

Cms PackageTest::onlyCms() const {
  const auto file = FileWithCmses::fromPath(package());
  if (!file || file->cmses().size() != 1)
    throw std::runtime_error("the package has not exactly one signature");
  return file->cmses().front();
}

std::string PackageTest::opensslCms(const std::vector<std::string>& options) const {
  std::vector<std::string> command = {
      "openssl",           "cms", "-sign", "-binary", "-outform", "DER", "-in", inSandbox("content"), "-out",
      inSandbox("cms.der")};
  for (const std::string& option : options) {
    if (!option.starts_with("SIGNER:")) {
      command.push_back(option);
      continue;
    }
    const std::string name = option.substr(option.find(':') + 1);
    command.insert(command.end(), {"-signer", pki().certificate(name), "-inkey", pki().key(name)});
  }
  Support::runOrThrow(command);
  return Support::readFile(inSandbox("cms.der"));
}

std::string replaced(std::string bytes, std::string_view from, std::string_view to) {
  return bytes.replace(bytes.find(from), from.size(), to);
}

std::string bigEndian(std::size_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(value >> shift & 0xFF);
  return bytes;
}

std::string flipped(std::string bytes, std::size_t bit) {
  bytes.at(bit / 8) = static_cast<char>(bytes.at(bit / 8) ^ (1 << bit % 8));
  return bytes;
}
