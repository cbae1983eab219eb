// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/archive_fixture.h"

#include "tests/support/diagnostics/thrown.h"
#include "tests/support/packages/package_surgery.h"

#include <iomanip>
#include <sstream>

namespace ArchiveTest {

using Common::Rpm::ArchiveEntry;
using Common::Rpm::ArchiveReader;
using Common::Rpm::HardLinkDescription;

const Support::PackageInput mixedPackage = {
    .install = "mkdir -p %{buildroot}/opt/sample/folder; cd %{buildroot}/opt/sample\n"
               "echo first > folder/first; echo second > second; : > empty; echo shared > one\n"
               "ln one two; ln -s folder/first link; chmod 750 folder; chmod 640 second",
    .files = "/opt/sample"};

const std::vector<Compressor> compressors = {
    {"gzip", "w9.gzdio"}, {"bzip2", "w9.bzdio"},  {"xz", "w6.xzdio"},
    {"lzma", "w6.lzdio"}, {"zstd", "w19.zstdio"}, {"none", "w.ufdio"},
};

std::string payloadOf(const std::filesystem::path& package) {
  const std::string bytes = Support::readFile(package);
  return bytes.substr(Support::payloadOffset(bytes));
}

std::vector<std::string> entriesOf(const std::string& payload) {
  const auto field = [&](std::size_t offset) { return std::stoul(payload.substr(offset, 8), nullptr, 16); };
  const auto filled = [](std::size_t size) { return (size + 3) / 4 * 4; };
  std::vector<std::string> entries;
  for (std::size_t offset = 0; offset < payload.size(); offset += entries.back().size()) {
    const std::size_t size = filled(110 + field(offset + 94)) + filled(field(offset + 54));
    entries.push_back(payload.substr(offset, size));
  }
  return entries;
}

std::string joined(const std::vector<std::string>& entries) {
  std::string payload;
  for (const std::string& entry : entries)
    payload += entry;
  return payload;
}

std::string textOf(const std::vector<std::byte>& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string describe(const ArchiveEntry& entry) {
  std::ostringstream line;
  line << entry.index
       << (entry.type == std::filesystem::file_type::directory ? " directory "
           : entry.type == std::filesystem::file_type::symlink ? " link "
           : entry.type == std::filesystem::file_type::regular ? " file "
                                                               : " special ");
  line << entry.path.string() << " " << std::oct << std::setw(3) << std::setfill('0')
       << static_cast<unsigned>(entry.permissions) << (entry.imaSigned ? " ima" : "");
  if (!entry.target.empty())
    line << " -> " << entry.target;
  return line.str();
}

Common::Rpm::ExtractionHandlers recording(ArchiveReader& archive, Events& events) {
  const auto record = [&events](const ArchiveEntry& entry) { events.push_back(describe(entry)); };
  return {.directory = record,
          .regularFile =
              [&](const ArchiveEntry& entry) {
                events.push_back(describe(entry) + ": " + textOf(archive.readContent()));
                return std::any();
              },
          .symbolicLink = record,
          .hardLinks =
              [&](const HardLinkDescription& group) {
                std::string event = group.content.path.string() + " is also";
                for (const HardLinkDescription::Link& link : group.links)
                  event += " " + std::to_string(link.index) + " " + link.path.string();
                events.push_back(event);
              }};
}

Events Fixture::extracted() const {
  ArchiveReader archive = open();
  Events events;
  archive.extract("/target", recording(archive, events));
  return events;
}

void Fixture::expectDamaged() const {
  EXPECT_EQ(Support::errorOf([&] { extracted(); }), "Internal: Couldn't read content from rpm package");
}

} // namespace ArchiveTest
