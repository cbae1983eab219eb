// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/archive_fixture.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/extraction/extract_tree.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/process.h"
#include "tests/support/process/scoped_mask.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using ArchiveTest::mixedPackage;
using Support::listTree;

class ArchiveTree : public ArchiveTest::Fixture {
public:
  /// Folders without write permission could not be removed.
  ~ArchiveTree() override {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_sandbox.path())) {
      if (entry.symlink_status().type() == std::filesystem::file_type::directory)
        permissions(entry, std::filesystem::perms::owner_all, std::filesystem::perm_options::add);
    }
  }

protected:
  std::filesystem::path freshFolder(const std::string& name) const {
    const std::filesystem::path folder = m_sandbox.path() / name;
    std::filesystem::create_directory(folder);
    return folder;
  }

  void extractTo(const std::filesystem::path& folder) const {
    Common::Rpm::ArchiveReader archive = open();
    Support::extractTree(archive, folder);
  }

  std::string extractedTree() const {
    const std::filesystem::path folder = freshFolder("ours");
    extractTo(folder);
    return listTree(folder);
  }

  /// The tree that the standard tools unpack. Unlike ArchiveReader they do not skip special files.
  std::string treeOfTheStandardTools() const {
    const std::filesystem::path folder = freshFolder("theirs");
    Support::runOrThrow({"bash", "-c",
                         "set -o pipefail; rpm2archive -n - < '" + package().string() + "' | tar -x -p -C '" +
                             folder.string() + "' --exclude './dev/*'"},
                        {});
    return listTree(folder);
  }
};

struct Sample {
  std::string name;
  Support::PackageInput input;
};

Support::PackageInput withHardLinks(int count) {
  return {.install = "mkdir -p %{buildroot}/opt/sample/other; cd %{buildroot}/opt/sample; echo shared > name1\n"
                     "for i in $(seq 2 " +
                     std::to_string(count) +
                     "); do ln name1 name$i; done\n"
                     "echo alone > alone; echo again > again; ln again other/again",
          .files = "/opt/sample"};
}

std::vector<Sample> samples() {
  std::vector<Sample> all = {
      {"HardLinksOfTwo", withHardLinks(2)},
      {"HardLinksOfThree", withHardLinks(3)},
      {"HardLinksOfFifty", withHardLinks(50)},
      {"EmptyHardLinks",
       {.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; : > a; ln a b; ln a c; : > alone",
        .files = "/opt/*"}},
      {"PermissionBits",
       {.install = "mkdir -p %{buildroot}/opt/d; cd %{buildroot}/opt; echo x > a; echo x > b; echo x > c; echo x > d/e",
        .files = "%attr(4755, root, root) /opt/a\n%attr(2640, root, root) /opt/b\n%attr(0400, root, root) /opt/c\n"
                 "%dir %attr(1555, root, root) /opt/d\n/opt/d/e"}},
      {"ConfigurationAndGhosts",
       {.install = "mkdir -p %{buildroot}/etc; cd %{buildroot}/etc; echo x > a; echo x > b; echo x > c",
        .files = "%config /etc/a\n%config(noreplace) %attr(755, root, root) /etc/b\n%ghost /etc/c"}},
      {"SpecialFiles",
       {.install =
            "mkdir -p %{buildroot}/dev %{buildroot}/opt; mkfifo %{buildroot}/dev/fifo; echo x > %{buildroot}/opt/a",
        .files = "%dir /dev\n/dev/fifo\n%dev(c, 1, 3) /dev/null\n/opt/a"}},
      {"Links",
       {.install =
            "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; ln -s /etc/passwd absolute; ln -s nowhere dangling\n"
            "ln -s dangling chain; ln -s . self",
        .files = "/opt/*"}},
      {"OddNames",
       {.install = "mkdir -p '%{buildroot}/opt/a b'; cd %{buildroot}/opt; echo x > 'a b/\xc3\xa4'; echo y > -rf\n"
                   "echo z > " +
                   std::string(200, 'n'),
        .files = "/opt/*"}},
      {"DeepFolders",
       {.install = "mkdir -p %{buildroot}/a/b/c/d/e/f; cd %{buildroot}/a/b/c/d/e/f; echo x > g",
        .files = "/a/b/c/d/e/f/g"}},
      {"SparseAndLarge",
       {.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; truncate -s 5M sparse; head -c 131072 /dev/zero > "
                   "one-buffer; head -c 131073 /dev/zero > and-more; seq 200000 > numbers",
        .files = "/opt/*"}},
      {"NoFiles", {.install = "", .files = ""}},
  };
  for (const ArchiveTest::Compressor& compressor : ArchiveTest::compressors) {
    Sample sample = {"CompressedWith_" + compressor.name, mixedPackage};
    sample.input.globals = "%global _binary_payload " + compressor.payload;
    all.push_back(std::move(sample));
  }
  return all;
}

class SamplePackage : public ArchiveTree, public testing::WithParamInterface<Sample> {};

TEST_P(SamplePackage, IsUnpackedLikeByTheStandardTools) {
  build(GetParam().input);
  EXPECT_EQ(extractedTree(), treeOfTheStandardTools());
}

INSTANTIATE_TEST_SUITE_P(Table, SamplePackage, testing::ValuesIn(samples()),
                         [](const auto& instance) { return instance.param.name; });

// Proves that the comparison above covers the whole tree.
TEST_F(ArchiveTree, IsDescribedEntryByEntry) {
  const Support::ScopedMask ofUnlistedDirectories(0022);
  build(mixedPackage);
  const std::string file = " 7 " + std::to_string(std::hash<std::string>()("shared\n"));
  const std::string tree = extractedTree();
  EXPECT_EQ(tree.substr(0, tree.find("opt/sample/empty")), "opt directory 755\nopt/sample directory 755\n");
  EXPECT_NE(tree.find("\nopt/sample/folder directory 750\n"), std::string::npos);
  EXPECT_NE(tree.find("\nopt/sample/link link folder/first\n"), std::string::npos);
  EXPECT_NE(tree.find("\nopt/sample/one file 644" + file + " opt/sample/one\n"), std::string::npos);
  EXPECT_NE(tree.find("\nopt/sample/two file 644" + file + " opt/sample/one\n"), std::string::npos);
}

TEST_F(ArchiveTree, StaysInItsFolderWhenNamesContainDotDot) {
  build(mixedPackage, {"none", "w.ufdio"});
  const std::filesystem::path folder = freshFolder("folder");
  Support::replaceEverywhere(package(), "/opt/sample/", "/../../out//");
  extractTo(folder);
  EXPECT_EQ(Support::readFile(folder / "out/second"), "second\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 2);
  EXPECT_FALSE(std::filesystem::exists(m_sandbox.path() / "out"));
  EXPECT_FALSE(std::filesystem::exists(m_sandbox.path().parent_path() / "out"));
}

TEST_F(ArchiveTree, StaysInItsFolderWhenASymlinkLeadsOut) {
  const Support::ScopedMask ofUnlistedDirectories(0022);
  const std::filesystem::path outside = freshFolder("outside");
  build(
      {.install = "mkdir -p %{buildroot}/opt/b; cd %{buildroot}/opt; ln -s " + outside.string() + " a; echo x > b/file",
       .files = "/opt/a\n/opt/b/file"},
      {"none", "w.ufdio"});
  Support::replaceEverywhere(package(), "/opt/b/", "/opt/a/");
  const std::filesystem::path folder = freshFolder("folder");
  EXPECT_THROW(extractTo(folder), std::runtime_error);
  EXPECT_EQ(listTree(folder), "opt directory 755\nopt/a link " + outside.string() + "\n");
  EXPECT_EQ(listTree(outside), "");
}

// Two names in the header with the same path on disk: a symlink, then a file.
TEST_F(ArchiveTree, StaysInItsFolderWhenAFileReplacesASymlink) {
  const std::filesystem::path outside = freshFolder("outside");
  build({.install =
             "mkdir -p %{buildroot}/opt/bb; cd %{buildroot}/opt; ln -s " + outside.string() + "/new a; echo x > bb/a",
         .files = "/opt/a\n/opt/bb/a"},
        {"none", "w.ufdio"});
  Support::replaceEverywhere(package(), "/opt/bb/", "/opt/.//");
  const std::filesystem::path folder = freshFolder("folder");
  EXPECT_THROW(extractTo(folder), std::runtime_error);
  EXPECT_EQ(listTree(outside), "");
}

TEST_F(ArchiveTree, NeedsNoMoreMemoryForAFileOf300MB) {
  build({.install = "mkdir -p %{buildroot}/opt; truncate -s 300M %{buildroot}/opt/large",
         .files = "/opt/large",
         .globals = "%global _binary_payload w1.zstdio"});
  const std::filesystem::path folder = freshFolder("folder");
  const std::string peak =
      Support::runOrThrow({Support::program("extract-package").string(), package().string(), folder.string()});
  EXPECT_EQ(std::filesystem::file_size(folder / "opt/large"), 300U * 1024 * 1024);
  EXPECT_LT(std::stoul(peak), 64U * 1024);
}

} // namespace
