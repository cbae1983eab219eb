// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/file_list.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/packages/rpm_sandbox.h"

#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using Acceptance::fileList;
using Acceptance::PackagedFile;
using Common::Rpm::Reader;
using std::filesystem::file_type;

const Support::PackageInput allKinds = {
    .install = "mkdir -p %{buildroot}/opt/dir; cd %{buildroot}/opt; printf abc >file; ln file other; ln -s file link; "
               "echo >ghost",
    .files = "%attr(1755, root, root) %dir /opt/dir\n%attr(4711, root, root) /opt/file\n"
             "%attr(4711, root, root) /opt/other\n/opt/link\n%ghost /opt/ghost"};

const char* nameOf(file_type type) {
  return type == file_type::directory ? "directory"
         : type == file_type::symlink ? "link"
         : type == file_type::regular ? "file"
                                      : "another";
}

using Lines = std::vector<std::string>;

/// One line per file.
Lines linesOf(const std::filesystem::path& package) {
  Lines lines;
  for (const PackagedFile& file : fileList(Reader(package.string()))) {
    std::ostringstream line;
    line << file.index << ' ' << file.name << ' ' << nameOf(file.type) << ' ' << std::oct
         << static_cast<unsigned>(file.permissions) << std::dec;
    if (file.type == file_type::regular)
      line << ' ' << file.size << " '" << file.digest << '\'';
    line << (file.target.empty() ? "" : " -> ") << file.target << (file.isGhost ? " ghost" : "")
         << (file.isFurtherName ? " further name" : "");
    lines.push_back(line.str());
  }
  return lines;
}

TEST(FileList, DescribesEachFileInHeaderOrder) {
  const Support::RpmSandbox sandbox;
  const auto package = sandbox.path() / "sample.rpm";
  sandbox.build(allKinds, package);
  // The well-known SHA-256 of "abc". A ghost has no digest in the header; librpm returns zeros for it.
  const std::string digest = "'ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad'";
  const Lines expected = {"0 /opt/dir directory 1755", "1 /opt/file file 4711 3 " + digest,
                          "2 /opt/ghost file 644 1 '" + std::string(64, '0') + "' ghost",
                          "3 /opt/link link 777 -> file", "4 /opt/other file 4711 3 " + digest + " further name"};
  EXPECT_EQ(linesOf(package), expected);
}

TEST(FileList, HasOnlyDigestsAndTargetsOfTheHeader) {
  const Support::RpmSandbox sandbox;
  const auto package = sandbox.path() / "sample.rpm";
  sandbox.build(allKinds, package);
  Support::changeHeader(package, [](Header header) {
    headerDel(header, RPMTAG_FILEDIGESTS);
    headerDel(header, RPMTAG_FILELINKTOS);
  });
  const Lines expected = {"0 /opt/dir directory 1755", "1 /opt/file file 4711 3 ''", "2 /opt/ghost file 644 1 '' ghost",
                          "3 /opt/link link 777", "4 /opt/other file 4711 3 '' further name"};
  EXPECT_EQ(linesOf(package), expected);
}

} // namespace
