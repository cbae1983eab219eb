// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/faults/enumeration.h"
#include "tests/support/files/tree.h"
#include "tests/support/packages/rpm_sandbox.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace {

namespace fs = std::filesystem;
using Support::describeTree;
using Support::readFile;
using testing::AnyOf;

class ArchiveFaults : public Enumeration {
protected:
  /// The operation `name` on the package built from `input` and on the destination.
  Operation on(const Support::PackageInput& input, const std::string& name) {
    const fs::path original = rpm.path() / "original.rpm";
    rpm.build(input, original);
    fs::copy(original, package);
    content = readFile(package);
    Operation operation;
    operation.command = {Support::program("krv-fault-target"), name, package, destination, original};
    // librpm repeats an interrupted read, but zlib returns the same error from then on: an endless loop. It needs a
    // signal handler and a file that is not on a local disk.
    operation.leaveOut = [this](const Support::SeenCall& call, int error) {
      return error == EINTR && call.name == "read" && call.path == package;
    };
    return operation;
  }

  /// The error has its message, after librpm's own messages.
  void expectError(const Disturbed& run) const {
    EXPECT_TRUE(readFile(package) == content);
    EXPECT_EQ(run.process.output, "");
    if (run.call.path == package) {
      EXPECT_THAT(messageOf(run), AnyOf("FileNotFound: Couldn't open rpm package\n",
                                        "BadPackageFileFormat: Couldn't read rpm package\n",
                                        "BadPackageFileFormat: Couldn't open rpm package for extraction\n",
                                        "Internal: Couldn't read content from rpm package\n"));
    }
  }

  static std::string messageOf(const Disturbed& run) {
    const std::string& text = run.process.errors;
    return text.substr(text.rfind('\n', text.size() - 2) + 1);
  }

  Support::RpmSandbox rpm;
  fs::path package = folder / "sample.rpm";
  fs::path destination = folder / "destination";
  std::string content;
};

TEST_F(ArchiveFaults, WriteContent) {
  Support::PackageInput input;
  input.install = "mkdir -p %{buildroot}/opt; seq 60000 > %{buildroot}/opt/file"; // more than two chunks
  input.files = "/opt/file";
  Operation writing = on(input, "write-content");
  std::string written;
  writing.atLeast = {{"openat", 2}, {"read", 4}, {"close", 2}};
  writing.prepare = [&] { fs::remove(destination); };
  writing.checkUndisturbed = [&](const Support::ProcessResult& process) {
    EXPECT_EQ(process.status, 0);
    written = readFile(destination);
    EXPECT_TRUE(written.starts_with("1\n2\n") && written.ends_with("\n60000\n"));
  };
  writing.checkDisturbed = [&](const Disturbed& run) {
    if (run.wasKilled() || run.process.status != 0) {
      EXPECT_TRUE(!fs::exists(destination) || written.starts_with(readFile(destination)));
    } else
      EXPECT_TRUE(readFile(destination) == written);
    if (run.wasKilled())
      return;
    // The file looks complete, but its data may be lost.
    EXPECT_FALSE(run.call.name == "close" && run.call.path == destination && run.process.status == 0);
    if (run.process.status == 0)
      return;
    EXPECT_EQ(run.process.status, 1);
    expectError(run);
    if (run.call.path == destination) {
      EXPECT_EQ(messageOf(run),
                run.call.name == "openat"
                    ? "Filesystem: Couldn't open file for writing rpm content: " + destination.string() + "\n"
                    : "Filesystem: Couldn't write rpm package content to " + destination.string() + "\n");
    }
  };
  enumerate(writing);
}

TEST_F(ArchiveFaults, Extract) {
  Support::PackageInput input;
  input.install = "mkdir -p %{buildroot}/opt/sub; cd %{buildroot}/opt; seq 60000 > file; echo tool > sub/tool; "
                  "chmod 755 sub/tool; ln -s file link; ln sub/tool other";
  input.files = "/opt";
  Operation extraction = on(input, "extract");
  std::string extracted;
  extraction.atLeast = {{"openat", 3}, {"read", 4}, {"mkdir", 2}, {"symlink", 1}, {"link", 1}};
  extraction.prepare = [&] {
    fs::remove_all(destination);
    fs::create_directory(destination);
  };
  extraction.checkUndisturbed = [&](const Support::ProcessResult& process) {
    EXPECT_EQ(process.status, 0);
    extracted = describeTree(destination);
  };
  extraction.checkDisturbed = [&](const Disturbed& run) {
    if (run.wasKilled())
      return;
    if (run.process.status == 0) {
      EXPECT_TRUE(describeTree(destination) == extracted);
      return;
    }
    expectError(run);
    if (run.call.path == package) {
      EXPECT_EQ(run.process.status, 1);
    }
  };
  enumerate(extraction);
}

} // namespace
