// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/xattr.h"
#include "common/posix/file_descriptor.h"
#include "tests/common/filesystem/fixture.h"
#include "tests/support/diagnostics/thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include <fcntl.h>

namespace {

namespace fs = std::filesystem;
namespace Filesystem = Common::Filesystem;
using Filesystem::XattrList;
using Support::describeTree;
using Support::errorOf;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

/// A file, a symlink to it and a missing file.
class Xattr : public AttributesTest {
protected:
  Xattr() {
    Support::writeFile(file, "content");
    fs::create_symlink("file", link);
  }

  const fs::path file = directory / "file";
  const fs::path link = directory / "link";
  const fs::path missing = directory / "missing";
};

TEST_F(Xattr, IsReadByteForByte) {
  for (const std::string& value : {std::string("plain"), zeros, std::string(1, '\0'), std::string(3000, '\xff')}) {
    Support::attach(file, "user.value", value);
    EXPECT_EQ(Filesystem::getXattr(file, "user.value"), value);
  }
}

TEST_F(Xattr, ReadsAnEmptyValue) {
  Support::attach(file, "user.empty", "");
  EXPECT_EQ(Filesystem::getXattr(file, "user.empty"), "");
  EXPECT_THAT(Filesystem::listXattrs(file), testing::ElementsAre(Pair("user.empty", "")));
}

TEST_F(Xattr, IsReadThroughASymlink) {
  Support::attach(file, "user.value", "x");
  EXPECT_EQ(Filesystem::getXattr(link, "user.value"), "x");
  EXPECT_THAT(Filesystem::listXattrs(link), testing::ElementsAre(Pair("user.value", "x")));
}

TEST_F(Xattr, FailsForAMissingAttribute) {
  fs::create_symlink("missing", directory / "dangling");
  for (const fs::path& path : {file, link, missing, directory / "dangling"})
    EXPECT_EQ(errorOf([&] { Filesystem::getXattr(path, "user.value"); }),
              "Filesystem: Couldn't retrieve size of user.value extended attribute: " + path.string());
  expectSilence();
}

TEST_F(Xattr, ListOfAFileWithoutAttributesIsEmpty) {
  EXPECT_THAT(Filesystem::listXattrs(file), IsEmpty());
  EXPECT_THAT(Filesystem::listXattrs(directory.path()), IsEmpty());
}

TEST_F(Xattr, ListHasEveryNameWithItsValue) {
  Support::attach(file, "user.first", "1");
  Support::attach(file, "user.empty", "");
  Support::attach(file, "user.zeros", zeros);
  Support::attach(file, "user.name with spaces, a \"quote\" and \xc3\xa4", "2");
  EXPECT_THAT(Filesystem::listXattrs(file),
              UnorderedElementsAre(Pair("user.first", "1"), Pair("user.empty", ""), Pair("user.zeros", zeros),
                                   Pair("user.name with spaces, a \"quote\" and \xc3\xa4", "2")));
}

TEST_F(Xattr, ListOfAnOpenFileIsReadAfterItsNameIsGone) {
  Support::attach(file, "user.zeros", zeros);
  Support::attach(file, "user.empty", "");
  const Common::Posix::FileDescriptor open(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  fs::remove(file);
  EXPECT_THAT(Filesystem::listXattrs(open.get(), missing),
              UnorderedElementsAre(Pair("user.zeros", zeros), Pair("user.empty", "")));
}

TEST_F(Xattr, ListOfAClosedDescriptorCannotBeRead) {
  EXPECT_EQ(errorOf([&] { Filesystem::listXattrs(-1, file); }),
            "Filesystem: Couldn't retrieve size of extended attributes: " + file.string());
  expectSilence();
}

TEST_F(Xattr, ListOfADirectoryIsRead) {
  Support::attach(directory.path(), "user.value", "x");
  EXPECT_THAT(Filesystem::listXattrs(directory.path()), testing::ElementsAre(Pair("user.value", "x")));
}

TEST_F(Xattr, ListOfAMissingPathCannotBeRead) {
  fs::create_symlink("missing", directory / "dangling");
  for (const fs::path& path : {missing, directory / "dangling", fs::path()})
    EXPECT_EQ(errorOf([&] { Filesystem::listXattrs(path); }),
              "Filesystem: Couldn't retrieve size of extended attributes: " + path.string());
  expectSilence();
}

TEST_F(Xattr, IsSetAndReplaced) {
  Filesystem::setXattr(file, "user.value", "a longer one");
  Filesystem::setXattr(file, "user.value", zeros);
  Filesystem::setXattr(file, "user.other", "x");
  EXPECT_THAT(Filesystem::listXattrs(file), UnorderedElementsAre(Pair("user.value", zeros), Pair("user.other", "x")));
}

TEST_F(Xattr, IsNotSetToAnEmptyValue) {
  Support::attach(file, "user.value", "x");
  const std::string before = describeTree(directory.path());
  Filesystem::setXattr(file, "user.value", "");
  Filesystem::setXattr(file, "user.other", "");
  Filesystem::setXattr(link, "user.other", "");
  Filesystem::setXattr(missing, "user.other", "");
  Filesystem::setXattr(file, "no namespace", "");
  EXPECT_EQ(describeTree(directory.path()), before);
}

TEST_F(Xattr, IsNotSetThroughASymlink) {
  // Symlinks cannot have attributes of the user namespace: the failure shows that the symlink itself was used.
  const std::string before = describeTree(directory.path());
  EXPECT_EQ(errorOf([&] { Filesystem::setXattr(link, "user.value", "x"); }),
            "Filesystem: Couldn't attach user.value extended attribute to " + link.string());
  EXPECT_EQ(describeTree(directory.path()), before);
  expectSilence();
}

TEST_F(Xattr, FailsForARefusedAttribute) {
  struct Case {
    fs::path path;
    std::string name;
    std::string value;
  };
  for (const Case& each :
       {Case{missing, "user.value", "x"}, Case{file, "", "x"}, Case{file, "no namespace", "x"},
        Case{file, "user." + std::string(300, 'x'), "x"}, Case{file, "user.value", std::string(65537, 'x')}})
    EXPECT_EQ(errorOf([&] { Filesystem::setXattr(each.path, each.name, each.value); }),
              "Filesystem: Couldn't attach " + each.name + " extended attribute to " + each.path.string());
  EXPECT_THAT(Filesystem::listXattrs(file), IsEmpty());
  expectSilence();
}

} // namespace
