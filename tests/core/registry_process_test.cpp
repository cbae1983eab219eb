// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/core/registry_sandbox.h"
#include "tests/support/faults/supervised.h"
#include "tests/support/faults/system_calls.h"
#include "tests/support/process/process.h"
#include "tests/support/process/wait.h"

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <sstream>

#include <signal.h>

namespace {

namespace fs = std::filesystem;
using Core::KRV::Registry;
using Core::KRV::RegistryRecord;
using Support::failNth;
using Support::Process;
using Support::ProcessResult;
using Support::readFile;
using Support::SeenCall;
using Support::waitUntil;
using Support::writeFile;

/// The registry, used by several processes.
class RegistryProcess : public RegistrySandbox {
protected:
  const std::string tool = Support::program("registry_tool").string();
  const std::vector<std::string> readCommand = {tool, "read"};
  const std::vector<std::string> writeCommand = {tool, "write", "timestamp=2 event=I package=p keyid=k"};
};

/// Another process that uses the registry, with an action or an error at one of its system calls.
class DisturbedRegistry : public RegistryProcess {
protected:
  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
  }

  ProcessResult run(const std::vector<std::string>& command, const Support::BeforeCall& beforeCall) const {
    return Support::runSupervised(command, {}, root.path(), {}, beforeCall).process;
  }
};

class RegistryFault : public DisturbedRegistry {
protected:
  /// Runs `command` on a registry with one record, which must stay unchanged.
  void expectFailure(const std::vector<std::string>& command, const Support::BeforeCall& fault,
                     const std::string& output) {
    writeFile(file, line(1));
    const ProcessResult result = run(command, fault);
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(readFile(file), line(1));
  }

  const std::string lockFileMessage = "[E] Couldn't create the registry lock file: " + quoted(lockFile) + "\n";
  const std::string lockMessage = "[E] Couldn't get an exclusive registry lock\n";
  const std::string openMessage = "[E] Couldn't open registry: " + quoted(file) + "\n";
  const std::string loadMessage = "[E] Couldn't load registry records\n";
  const std::string nextMessage = "[E] Couldn't write records to the next registry: " + quoted(nextFile) + "\n";
};

TEST_F(RegistryProcess, WorksUnderARelativeRoot) {
  for (const std::string value : {"", "image", "./image/"}) {
    const Support::TempDirectory working;
    const ProcessResult written = Support::run(writeCommand, {{"KRV_ROOT_FS", value}}, working.path());
    EXPECT_EQ(written.output, "");
    EXPECT_EQ(written.status, 0);
    EXPECT_EQ(readFile(working / value / "var/lib/krv/registry"), line(2));
    const ProcessResult read = Support::run(readCommand, {{"KRV_ROOT_FS", value}}, working.path());
    EXPECT_EQ(read.output, line(2));
    EXPECT_EQ(read.status, 0);
  }
}

TEST_F(RegistryProcess, LosesNoRecordWhenTwoWriteAtOnce) {
  const auto lines = [](const std::string& package) {
    std::vector<std::string> all;
    for (int i = 0; i < 100; ++i)
      all.push_back("timestamp=" + std::to_string(i) + " event=I package=" + package + std::to_string(i) + " keyid=k");
    return all;
  };
  const auto start = [this](const std::vector<std::string>& records) {
    std::vector<std::string> command = {tool, "write"};
    command.insert(command.end(), records.begin(), records.end());
    return std::make_unique<Process>(command);
  };
  const auto ones = start(lines("one"));
  const auto others = start(lines("other"));
  for (const auto& process : {ones.get(), others.get()}) {
    const ProcessResult result = process->wait();
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.status, 0);
  }

  std::vector<std::string> ofOne, ofOther;
  std::istringstream registry(readFile(file));
  for (std::string text; std::getline(registry, text);)
    (text.find("package=one") != text.npos ? ofOne : ofOther).push_back(text);
  EXPECT_EQ(ofOne, lines("one"));
  EXPECT_EQ(ofOther, lines("other"));
}

TEST_F(RegistryProcess, ReadersAndWritersWaitForAReader) {
  writeFile(file, line(1));
  std::unique_ptr<Process> reader, writer;
  EXPECT_TRUE(Registry().foreachRecord([&](const RegistryRecord&) {
    reader = std::make_unique<Process>(readCommand);
    EXPECT_TRUE(waitUntil([&] { return waitsForALock(reader->id()); }));
    writer = std::make_unique<Process>(writeCommand);
    EXPECT_TRUE(waitUntil([&] { return waitsForALock(writer->id()); }));
    EXPECT_EQ(reader->outputSoFar(), "");
    EXPECT_EQ(readFile(file), line(1));
  }));
  EXPECT_EQ(reader->wait().status, 0);
  EXPECT_EQ(writer->wait().status, 0);
  EXPECT_EQ(readFile(file), line(2));
}

TEST_F(DisturbedRegistry, IsNotReadDuringAWrite) {
  writeFile(file, line(1));
  std::unique_ptr<Process> reader;
  const auto beforeWrite = [&](const SeenCall& call) {
    EXPECT_TRUE(holdsALock(call.process));
    EXPECT_EQ(readFile(nextFile), "");
    reader = std::make_unique<Process>(readCommand);
    EXPECT_TRUE(waitUntil([&] { return waitsForALock(reader->id()); }));
    EXPECT_EQ(reader->outputSoFar(), "");
    return 0;
  };
  EXPECT_EQ(run(writeCommand, Support::beforeNth("write", 1, nextFile, beforeWrite)).status, 0);
  ASSERT_TRUE(reader);
  const ProcessResult result = reader->wait();
  EXPECT_EQ(result.output, line(2));
  EXPECT_EQ(result.status, 0);
}

TEST_F(DisturbedRegistry, IsLockedUntilItIsReplaced) {
  writeFile(file, line(1));
  bool isReplaced = false;
  const auto beforeRename = [&](const SeenCall& call) {
    isReplaced = true;
    EXPECT_TRUE(holdsALock(call.process));
    EXPECT_EQ(readFile(nextFile), line(2));
    EXPECT_EQ(readFile(file), line(1));
    return 0;
  };
  EXPECT_EQ(run(writeCommand, Support::beforeNth("rename", 1, nextFile, beforeRename)).status, 0);
  EXPECT_TRUE(isReplaced);
}

TEST_F(DisturbedRegistry, IsUnchangedAndUnlockedAfterAKilledWriter) {
  const std::string before = "timestamp=1 event=I package=other keyid=k\n";
  writeFile(file, before);
  const auto killWriter = [](const SeenCall& call) { return kill(call.process, SIGKILL); };
  EXPECT_EQ(run(writeCommand, Support::beforeNth("write", 2, nextFile, killWriter)).status, 128 + SIGKILL);
  EXPECT_EQ(readFile(file), before);
  EXPECT_EQ(readFile(nextFile), before);
  EXPECT_EQ(Support::run(writeCommand).status, 0);
  EXPECT_EQ(readFile(file), before + line(2));
}

// The lock file is replaced between opening and locking it.
TEST_F(DisturbedRegistry, IsLockedThroughTheOpenedFileEvenIfItIsReplaced) {
  writeFile(file, line(1));
  writeFile(root / "stranger", "kept");
  std::atomic<pid_t> id = 0;
  const auto beforeLocking = [&](const SeenCall& call) {
    fs::remove(lockFile);
    fs::create_symlink(root / "stranger", lockFile);
    id = call.process;
    return 0;
  };
  std::future<ProcessResult> reader;
  EXPECT_TRUE(Registry().foreachRecord([&](const RegistryRecord&) {
    reader = std::async(std::launch::async,
                        [&] { return run(readCommand, Support::beforeNth("open", 3, lockFile, beforeLocking)); });
    EXPECT_TRUE(waitUntil([&] { return id != 0 && waitsForALock(id); }));
  }));
  const ProcessResult result = reader.get();
  EXPECT_EQ(result.output, line(1));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(readFile(root / "stranger"), "kept");
}

// Without /proc the lock file is opened a second time by its path.
TEST_F(DisturbedRegistry, IsLockedWithoutProc) {
  writeFile(file, line(1));
  bool isOpen = false;
  bool isLocked = false;
  const auto hideProc = [&](const SeenCall& call) {
    isOpen = isOpen || call.name == "ftruncate";
    isLocked = isLocked || (call.name == "read" && call.path == file && holdsALock(call.process));
    // After opening the lock file, the tool calls stat for its descriptor in /proc.
    if (!isOpen || call.name != Support::statusCall || call.path != lockFile)
      return 0;
    fs::rename(lockFile, root / "other");
    writeFile(lockFile, "");
    return ENOENT;
  };
  EXPECT_TRUE(Registry().foreachRecord([&](const RegistryRecord&) {
    const ProcessResult result = run(readCommand, hideProc);
    EXPECT_EQ(result.output, line(1));
    EXPECT_EQ(result.status, 0);
  }));
  EXPECT_TRUE(isLocked);
  EXPECT_TRUE(fs::exists(root / "other"));
}

TEST_F(RegistryFault, InCreatingTheLockFile) {
  expectFailure(readCommand, failNth("open", 1, lockFile, EMFILE), lockFileMessage);
  expectFailure(writeCommand, failNth("open", 1, lockFile, EACCES), lockFileMessage);
}

TEST_F(RegistryFault, InOpeningTheLock) {
  expectFailure(readCommand, failNth("open", 3, lockFile, EACCES), "[E] Permission denied\n" + lockMessage);
  expectFailure(writeCommand, failNth("open", 3, lockFile, ENFILE),
                "[E] Too many open files in system\n" + lockMessage);
}

TEST_F(RegistryFault, InTakingTheLock) {
  expectFailure(readCommand, failNth("fcntl", 1, lockFile, ENOLCK), "[E] No locks available\n" + lockMessage);
  expectFailure(writeCommand, failNth("fcntl", 1, lockFile, EDEADLK), "[E] Resource deadlock avoided\n" + lockMessage);
}

TEST_F(RegistryFault, InCreatingTheFolder) {
  const std::string reason =
      fs::filesystem_error("cannot create directories", folder, std::make_error_code(std::errc::read_only_file_system))
          .what();
  for (const auto& command : {readCommand, writeCommand}) {
    const ProcessResult result = run(command, failNth("mkdir", 1, folder, EROFS));
    EXPECT_EQ(result.output, "[E] " + reason + "\nCouldn't create directory: " + folder.string() + "\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_FALSE(fs::exists(folder));
    fs::remove_all(root / "var");
  }
}

TEST_F(RegistryFault, InOpeningTheRegistry) {
  expectFailure(readCommand, failNth("open", 1, file, EACCES), openMessage);
  expectFailure(writeCommand, failNth("open", 1, file, EIO), openMessage + loadMessage);
}

TEST_F(RegistryFault, InReadingTheRegistry) {
  expectFailure(readCommand, failNth("read", 1, file, EIO), openMessage);
  expectFailure(writeCommand, failNth("read", 1, file, EIO), openMessage + loadMessage);
  EXPECT_FALSE(fs::exists(nextFile));
}

TEST_F(RegistryFault, InReadingTheMiddleOfTheRegistry) {
  std::string before;
  for (int i = 0; i < 1000; ++i)
    before += "timestamp=" + std::to_string(i) + " event=I package=other keyid=k\n";
  writeFile(file, before);
  const ProcessResult written = run(writeCommand, failNth("read", 2, file, EIO));
  EXPECT_EQ(written.output, openMessage + loadMessage);
  EXPECT_EQ(written.status, 1);
  EXPECT_EQ(readFile(file), before);

  const ProcessResult read = run(readCommand, failNth("read", 2, file, EIO));
  EXPECT_EQ(read.status, 1);
  // The complete records of the first block, then the failure. The line that is cut at the end of the block is not a
  // record.
  const std::string records = read.output.substr(0, read.output.size() - openMessage.size());
  EXPECT_EQ(read.output, records + openMessage);
  EXPECT_EQ(before.substr(0, records.size()), records);
  EXPECT_EQ(records.back(), '\n');
}

TEST_F(RegistryFault, InCheckingTheFolderOfTheNextFile) {
  const std::string reason =
      fs::filesystem_error("cannot create directories", folder, std::make_error_code(std::errc::io_error)).what();
  expectFailure(writeCommand, failNth(Support::statusCall, 2, folder, EIO), "[E] " + reason + "\n" + nextMessage);
}

TEST_F(RegistryFault, InOpeningTheNextFile) {
  expectFailure(writeCommand, failNth("open", 1, nextFile, ENOSPC), nextMessage);
}

TEST_F(RegistryFault, InWritingTheNextFile) {
  expectFailure(writeCommand, failNth("write", 1, nextFile, ENOSPC), nextMessage);
}

TEST_F(RegistryFault, InWritingALaterLineOfTheNextFile) {
  const std::string before = "timestamp=1 event=I package=other keyid=k\n";
  writeFile(file, before);
  const ProcessResult result = run(writeCommand, failNth("write", 2, nextFile, EDQUOT));
  EXPECT_EQ(result.output, nextMessage);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(readFile(file), before);
}

TEST_F(RegistryFault, InClosingTheNextFile) {
  expectFailure(writeCommand, failNth("close", 1, nextFile, EIO), nextMessage);
}

TEST_F(RegistryFault, InRenaming) {
  const std::string reason =
      fs::filesystem_error("cannot rename", nextFile, file, std::make_error_code(std::errc::io_error)).what();
  expectFailure(writeCommand, failNth("rename", 1, nextFile, EIO),
                "[E] " + reason + "\n[E] Couldn't move " + nextFile.string() + " to " + file.string() +
                    "\n[E] Couldn't atomically update registry: " + quoted(nextFile) + " -> " + quoted(file) + "\n");
  EXPECT_EQ(readFile(nextFile), line(2));
  EXPECT_EQ(Support::run(writeCommand).status, 0);
  EXPECT_EQ(readFile(file), line(2));
}

} // namespace
