// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/test_image.h"

#include "tests/support/signing/pki.h"

#include <rpmsign-external/signing.h>

#include <array>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include <elf.h>

namespace ImageCheckTest {

namespace fs = std::filesystem;

using Support::writeFile;

namespace {

Lines linesOf(const std::string& text) {
  std::istringstream stream(text);
  Lines lines;
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  return lines;
}

/// The lines before the plan.
Lines findingLines(const std::string& text) {
  Lines lines = linesOf(text);
  const auto isFinding = [](const std::string& line) {
    return line.find(": error: ") != line.npos || line.find(": warning: ") != line.npos ||
           line.find(": note: ") != line.npos || line.find(": waived ") != line.npos;
  };
  std::erase_if(lines, [&](const std::string& line) { return !isFinding(line); });
  return lines;
}

} // namespace

TestImage::TestImage() {
  writeProgram(root() / "usr/sbin/krv-pre-installer", EM_X86_64);
  writeFile(root() / "usr/lib/systemd/system/krv-pre-installer.service",
            "[Service]\nExecStart=\"/usr/sbin/krv-pre-installer\"\n[Install]\nWantedBy=multi-user.target\n");
  fs::create_directories(root() / "etc/systemd/system/multi-user.target.wants");
  fs::create_symlink("/usr/lib/systemd/system/krv-pre-installer.service",
                     root() / "etc/systemd/system/multi-user.target.wants/krv-pre-installer.service");
  writeFile(root() / "usr/share/dbus-1/system-services/velta.KRV.service", "[D-BUS Service]\nName=velta.KRV\n");
  writeFile(root() / "usr/share/dbus-1/system.d/velta.KRV.conf", "<allow own=\"velta.KRV\"/>\n");
  Support::trustAuthorityUnder(root());
  fs::create_directories(root() / "var/lib/rpm");
  Support::runOrThrow({"rpm", "--dbpath", root() / "var/lib/rpm", "--initdb"});
  add({.name = "notes"});
}

fs::path TestImage::add(const Support::PackageInput& input, const std::string& signer,
                        const std::vector<std::string>& previous) const {
  const fs::path path = entry(input.name + ".rpm");
  m_rpm.build(input, path);
  if (!signer.empty())
    Support::sign(path, signer, previous);
  return path;
}

const Support::Authority& TestImage::authority() {
  if (!m_authority)
    m_authority = std::make_unique<Support::Authority>(outside() / "authority");
  return *m_authority;
}

void TestImage::trustAuthority() {
  for (const fs::directory_entry& file : fs::directory_iterator(authority().trusted()))
    fs::copy_file(file.path(), root() / "etc/krv/trusted-ca" / file.path().filename());
}

fs::path TestImage::addSignedBy(const std::string& certificate, const Support::PackageInput& input) {
  const fs::path path = add(input, "");
  const auto key = PackageSignatures::SigningKey::load(authority().key(certificate), authority().pem(certificate));
  PackageSignatures::signPackage(path, {.key = key});
  return path;
}

std::string TestImage::copy(const std::string& name) const {
  fs::copy(root(), outside() / name, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  return name;
}

void TestImage::install(const Support::PackageInput& input) const {
  const fs::path path = outside() / "installed.rpm";
  m_rpm.build(input, path);
  Support::runOrThrow({"rpm", "--dbpath", root() / "var/lib/rpm", "-i", "--justdb", "--nodeps", "--noscripts", path});
}

Support::ProcessResult TestImage::run(const std::vector<std::string>& options,
                                      const Support::Environment& environment) const {
  std::vector<std::string> command = {Support::program("krv-image-check"), "image"};
  command.insert(command.end(), options.begin(), options.end());
  return Support::run(command, environment, outside());
}

Lines TestImage::findings(const std::vector<std::string>& options) const {
  const Support::ProcessResult text = run(options);
  if (text.status > 1 || !text.errors.empty())
    throw std::runtime_error(std::to_string(text.status) + " " + text.output + text.errors);
  Lines lines = findingLines(text.output);
  std::vector<std::string> forJson = options;
  forJson.insert(forJson.end(), {"--format", "json"});
  const Support::ProcessResult json = run(forJson);
  validate(json.output);
  if (json.status != text.status || nlohmann::json::parse(json.output)["findings"].size() != lines.size())
    throw std::runtime_error("text and JSON differ:\n" + text.output + json.output);
  return lines;
}

void writeProgram(const fs::path& path, std::uint16_t machine) {
  Elf64_Ehdr header{};
  std::copy_n(ELFMAG, SELFMAG, header.e_ident);
  header.e_ident[EI_CLASS] = ELFCLASS64;
  header.e_ident[EI_DATA] = ELFDATA2LSB;
  header.e_machine = machine;
  writeFile(path, {reinterpret_cast<const char*>(&header), sizeof header});
  fs::permissions(path, static_cast<fs::perms>(0755));
}

void flipByte(const fs::path& path, std::size_t fromEnd) {
  std::string bytes = Support::readFile(path);
  bytes.at(bytes.size() - fromEnd) ^= 1;
  writeFile(path, bytes);
}

void validate(const std::string& json) {
  const Support::TempDirectory folder;
  writeFile(folder / "report.json", json);
  Support::runOrThrow({KRV_SOURCE_DIRECTORY "/tests/tools/krv-image-check/validate_json.py",
                       KRV_SOURCE_DIRECTORY "/docs/image-check.schema.json", folder / "report.json"});
}

} // namespace ImageCheckTest
