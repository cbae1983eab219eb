// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/archive_fixture.h"

#include "tests/support/thrown.h"

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
