// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"
#include "tests/support/files/special_files.h"
#include "tests/support/packages/open_pgp_key.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Support::readFile;
using Support::writeFile;

const std::string unreadable = "Couldn't read rpm package";

class OddEntries : public testing::Test {
protected:
  fs::path in(const std::string& name) const { return m_device.preinstallDirectory() / name; }

  /// The expected log: each entry has its lines in `linesOf`, or is installed.
  std::string expectedLog(const std::map<std::string, std::string>& linesOf) const {
    std::string log;
    for (const fs::path& path : m_device.entries()) {
      const auto found = linesOf.find(path.filename());
      log += found != linesOf.end() ? found->second : installedLine(path);
    }
    return log + timeLine;
  }

  Device m_device;
};

TEST_F(OddEntries, AreSkippedWithoutBlockingIfTheyAreNotRegularFiles) {
  m_device.add({});
  Support::makeFifo(in("fifo.rpm"));
  fs::create_symlink("fifo.rpm", in("link-to-fifo.rpm"));
  fs::create_directory(in("folder.rpm"));
  fs::create_symlink("/dev/zero", in("device.rpm"));
  Support::makeSocket(in("socket.rpm"));

  std::map<std::string, std::string> lines;
  for (const std::string name : {"fifo.rpm", "link-to-fifo.rpm", "folder.rpm", "device.rpm", "socket.rpm"})
    lines[name] = unreadableLines(unreadable, in(name));
  const auto run = m_device.run();
  EXPECT_EQ(run.log, expectedLog(lines));
  EXPECT_EQ(run.status, 0);
}

TEST_F(OddEntries, AreSkippedIfTheyAreNotPackages) {
  writeFile(in("text.rpm"), "This is no package.\n");
  writeFile(in("empty.rpm"), "");
  writeFile(in("README"), std::string(100000, 'x'));
  std::map<std::string, std::string> lines;
  for (const std::string name : {"text.rpm", "empty.rpm", "README"})
    lines[name] = unreadableLines(unreadable, in(name));
  const auto run = m_device.run();
  EXPECT_EQ(run.log, expectedLog(lines));
  EXPECT_EQ(run.status, 0);
}

TEST_F(OddEntries, AreFollowedIfTheyAreSymlinksToPackages) {
  m_device.rpm().build({}, m_device.root() / "elsewhere.rpm");
  Support::sign(m_device.root() / "elsewhere.rpm", "alice");
  fs::create_symlink(m_device.root() / "elsewhere.rpm", in("link.rpm"));
  EXPECT_EQ(m_device.run().log, installedLine(in("link.rpm")) + timeLine);
  EXPECT_EQ(m_device.service().calls().back(), Support::installCall(in("link.rpm")));
}

TEST_F(OddEntries, MayHaveNamesThatNeedQuoting) {
  m_device.add({}, "alice", {}, "plain.rpm");
  for (const std::string name : {"a b.rpm", "quo\"te.rpm", "back\\slash.rpm", "new\nline.rpm", "-rf", "\xc3\xa4.rpm"})
    fs::copy_file(in("plain.rpm"), in(name));
  EXPECT_EQ(m_device.run().log, expectedLog({}));
  for (const Support::ReceivedCall& call : m_device.service().calls())
    EXPECT_TRUE(call.member == "GetPackage" || call.member == "Install");
}

TEST_F(OddEntries, AreRefusedByTheBusIfTheirNamesAreNotUtf8) {
  m_device.add({}, "alice", {}, "\xff.rpm");
  EXPECT_EQ(m_device.run().log,
            "[E] Package installation error: Failed to serialize a string value (Invalid argument)\n" +
                failedLine(in("\xff.rpm")) + timeLine);
}

TEST_F(OddEntries, AreSkippedWhenCutBeforeTheirPayload) {
  const fs::path whole = m_device.add({}, "alice", {}, "whole.rpm");
  const std::string bytes = readFile(whole);
  const std::size_t payload = Support::payloadOffset(bytes);
  std::map<std::string, std::string> lines;
  for (std::size_t size = 0; size < bytes.size(); size += 64) {
    const std::string name = "cut-" + std::to_string(size) + ".rpm";
    writeFile(in(name), std::string_view(bytes).substr(0, size));
    if (size < payload)
      lines[name] = unreadableLines(unreadable, in(name));
  }
  ASSERT_GT(lines.size(), 30U);
  const auto run = m_device.run();
  EXPECT_EQ(run.log, expectedLog(lines));
  EXPECT_EQ(run.status, 0);
}

TEST_F(OddEntries, AreSkippedWhenAByteOfTheirMainHeaderIsFlipped) {
  const fs::path whole = m_device.add({}, "alice", {}, "whole.rpm");
  const std::string bytes = readFile(whole);
  const std::size_t payload = Support::payloadOffset(bytes);
  std::map<std::string, std::string> lines;
  for (std::size_t offset = payload - 900; offset < payload; offset += 60) {
    const std::string name = "flipped-" + std::to_string(offset) + ".rpm";
    std::string damaged = bytes;
    damaged[offset] = static_cast<char>(~damaged[offset]);
    writeFile(in(name), damaged);
    lines[name] = unreadableLines(unreadable, in(name));
  }
  EXPECT_EQ(m_device.run().log, expectedLog(lines));
}

TEST_F(OddEntries, AreReadWhenSignedWithAnImportedOpenPgpKey) {
  const fs::path path = m_device.add({}, "");
  const Support::OpenPgpKey key(m_device.rpm());
  key.sign(path);
  key.import();
  Support::sign(path, "alice");
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
}

TEST_F(OddEntries, AreSkippedWhenSignedWithAnUnknownOpenPgpKey) {
  const fs::path path = m_device.add({}, "");
  const Support::OpenPgpKey key(m_device.rpm());
  key.sign(path);
  Support::sign(path, "alice");
  EXPECT_EQ(m_device.run().log, unreadableLines(unreadable, path) + timeLine);
}

TEST_F(OddEntries, AreSkippedIfTheyAreUnreadable) {
  if (geteuid() == 0)
    GTEST_SKIP() << "root may read every file";
  const fs::path path = m_device.add({});
  fs::permissions(path, fs::perms::none);
  EXPECT_EQ(m_device.run().log, unreadableLines("Couldn't open rpm package", path) + timeLine);
}

TEST_F(OddEntries, AreNeverModified) {
  m_device.add({.name = "good"});
  m_device.add({.name = "unsigned"}, "");
  writeFile(in("text.rpm"), "text");
  const auto state = [&] {
    std::map<std::string, std::string> files;
    for (const fs::path& path : m_device.entries()) {
      struct stat status {};
      EXPECT_EQ(stat(path.c_str(), &status), 0);
      files[path] = readFile(path) + " " + std::to_string(status.st_mode) + " " + std::to_string(status.st_ino) + " " +
                    std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec) + " " +
                    std::to_string(status.st_ctim.tv_sec) + "." + std::to_string(status.st_ctim.tv_nsec);
    }
    return files;
  };
  const auto before = state();
  m_device.run();
  EXPECT_EQ(state(), before);
}

} // namespace
