// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/core/registry_sandbox.h"
#include "tests/support/faults/fault.h"
#include "tests/support/process/process.h"
#include "tests/support/process/wait.h"

#include <memory>
#include <sstream>

#include <signal.h>

namespace {

namespace fs = std::filesystem;
using Core::KRV::Registry;
using Core::KRV::RegistryRecord;
using Support::fault;
using Support::Process;
using Support::ProcessResult;
using Support::readFile;
using Support::waitUntil;
using Support::writeFile;

/// The registry as another process of the family meets it.
class RegistryProcess : public RegistrySandbox {
protected:
  const std::string tool = Support::program("registry_tool").string();
  const std::vector<std::string> readCommand = {tool, "read"};
  const std::vector<std::string> writeCommand = {tool, "write", "timestamp=2 event=I package=p keyid=k"};

  /// Runs `command` in the environment `faulty` over a registry with one record, which must stay.
  void expectFailure(const std::vector<std::string>& command, const Support::Environment& faulty,
                     const std::string& output, int status = 1) {
    writeFile(file, line(1));
    const ProcessResult result = Support::run(command, faulty);
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(readFile(file), line(1));
  }

  static bool isStopped(pid_t id) {
    const std::string status = readFile("/proc/" + std::to_string(id) + "/stat");
    return status.substr(status.rfind(')') + 2, 1) == "T";
  }
};

class RegistryFault : public RegistryProcess {
protected:
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

TEST_F(RegistryProcess, AReaderWaitsForAWriter) {
  writeFile(file, line(1));
  Process writer(writeCommand, fault("write", 1, "SIGSTOP", "registry.next"));
  ASSERT_TRUE(waitUntil([&] { return isStopped(writer.id()); }));
  EXPECT_TRUE(holdsALock(writer.id()));
  EXPECT_EQ(readFile(nextFile), "");
  Process reader(readCommand);
  EXPECT_TRUE(waitUntil([&] { return waitsForALock(reader.id()); }));
  EXPECT_EQ(reader.outputSoFar(), "");

  writer.signal(SIGCONT);
  EXPECT_EQ(writer.wait().status, 0);
  const ProcessResult result = reader.wait();
  EXPECT_EQ(result.output, line(2));
  EXPECT_EQ(result.status, 0);
}

TEST_F(RegistryProcess, AWriterHoldsTheLockUntilTheRegistryIsReplaced) {
  writeFile(file, line(1));
  Process writer(writeCommand, fault("rename", 1, "SIGSTOP", "registry.next"));
  ASSERT_TRUE(waitUntil([&] { return isStopped(writer.id()); }));
  EXPECT_TRUE(holdsALock(writer.id()));
  EXPECT_EQ(readFile(nextFile), line(2));
  EXPECT_EQ(readFile(file), line(1));
  writer.signal(SIGCONT);
  EXPECT_EQ(writer.wait().status, 0);
}

TEST_F(RegistryProcess, AKilledWriterLeavesTheOldRegistryAndNoLock) {
  const std::string before = "timestamp=1 event=I package=other keyid=k\n";
  writeFile(file, before);
  EXPECT_EQ(Support::run(writeCommand, fault("write", 2, "SIGKILL", "registry.next")).status, 128 + SIGKILL);
  EXPECT_EQ(readFile(file), before);
  EXPECT_EQ(readFile(nextFile), before);
  EXPECT_EQ(Support::run(writeCommand).status, 0);
  EXPECT_EQ(readFile(file), before + line(2));
}

// In the moment between opening the lock file and locking it.
TEST_F(RegistryProcess, LocksTheFileThatItOpenedWhateverTakesItsPlace) {
  writeFile(file, line(1));
  writeFile(root / "stranger", "kept");
  std::unique_ptr<Process> reader;
  EXPECT_TRUE(Registry().foreachRecord([&](const RegistryRecord&) {
    reader = std::make_unique<Process>(readCommand, fault("open", 1, "SIGSTOP", "/proc/self/fd/"));
    ASSERT_TRUE(waitUntil([&] { return isStopped(reader->id()); }));
    fs::remove(lockFile);
    fs::create_symlink(root / "stranger", lockFile);
    reader->signal(SIGCONT);
    EXPECT_TRUE(waitUntil([&] { return waitsForALock(reader->id()); }));
  }));
  const ProcessResult result = reader->wait();
  EXPECT_EQ(result.output, line(1));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(readFile(root / "stranger"), "kept");
}

TEST_F(RegistryProcess, LocksWithoutProcToo) {
  writeFile(file, line(1));
  std::unique_ptr<Process> reader;
  EXPECT_TRUE(Registry().foreachRecord([&](const RegistryRecord&) {
    reader = std::make_unique<Process>(readCommand, fault("stat", 1, "ENOENT", "/proc/self/fd/"));
    EXPECT_TRUE(waitUntil([&] { return waitsForALock(reader->id()); }));
  }));
  const ProcessResult result = reader->wait();
  EXPECT_EQ(result.output, line(1));
  EXPECT_EQ(result.status, 0);
}

TEST_F(RegistryFault, InCreatingTheLockFile) {
  expectFailure(readCommand, fault("open", 1, "EMFILE", "registry.lock"), lockFileMessage);
  expectFailure(writeCommand, fault("open", 1, "EACCES", "registry.lock"), lockFileMessage);
}

TEST_F(RegistryFault, InOpeningTheLock) {
  expectFailure(readCommand, fault("open", 1, "EACCES", "/proc/self/fd/"), "[E] Permission denied\n" + lockMessage);
  expectFailure(writeCommand, fault("open", 1, "ENFILE", "/proc/self/fd/"),
                "[E] Too many open files in system\n" + lockMessage);
}

TEST_F(RegistryFault, InTakingTheLock) {
  expectFailure(readCommand, fault("fcntl", 1, "ENOLCK", "registry.lock"), "[E] No locks available\n" + lockMessage);
  expectFailure(writeCommand, fault("fcntl", 1, "EDEADLK", "registry.lock"),
                "[E] Resource deadlock avoided\n" + lockMessage);
}

TEST_F(RegistryFault, InMakingTheFolder) {
  const std::string reason =
      fs::filesystem_error("cannot create directories", folder, std::make_error_code(std::errc::read_only_file_system))
          .what();
  for (const auto& command : {readCommand, writeCommand}) {
    const ProcessResult result = Support::run(command, fault("mkdir", 3, "EROFS", root.path().string()));
    EXPECT_EQ(result.output, "[E] " + reason + "\nCouldn't create directory: " + folder.string() + "\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_FALSE(fs::exists(folder));
    fs::remove_all(root / "var");
  }
}

TEST_F(RegistryFault, InOpeningTheRegistry) {
  expectFailure(readCommand, fault("open", 2, "EACCES", "registry"), openMessage);
  expectFailure(writeCommand, fault("open", 2, "EIO", "registry"), openMessage + loadMessage);
}

TEST_F(RegistryFault, InReadingTheRegistry) {
  expectFailure(readCommand, fault("read", 1, "EIO", "registry"), openMessage);
  expectFailure(writeCommand, fault("read", 1, "EIO", "registry"), openMessage + loadMessage);
  EXPECT_FALSE(fs::exists(nextFile));
}

TEST_F(RegistryFault, InReadingTheMiddleOfTheRegistry) {
  std::string before;
  for (int i = 0; i < 1000; ++i)
    before += "timestamp=" + std::to_string(i) + " event=I package=other keyid=k\n";
  writeFile(file, before);
  const ProcessResult written = Support::run(writeCommand, fault("read", 2, "EIO", "registry"));
  EXPECT_EQ(written.output, openMessage + loadMessage);
  EXPECT_EQ(written.status, 1);
  EXPECT_EQ(readFile(file), before);

  const ProcessResult read = Support::run(readCommand, fault("read", 2, "EIO", "registry"));
  EXPECT_EQ(read.status, 1);
  // Whole records of the first block, then the failure; the line that the block cuts is not taken for a record.
  const std::string records = read.output.substr(0, read.output.size() - openMessage.size());
  EXPECT_EQ(read.output, records + openMessage);
  EXPECT_EQ(before.substr(0, records.size()), records);
  EXPECT_EQ(records.back(), '\n');
}

TEST_F(RegistryFault, InCheckingTheFolderOfTheNextFile) {
  const std::string reason =
      fs::filesystem_error("cannot create directories", folder, std::make_error_code(std::errc::io_error)).what();
  expectFailure(writeCommand, fault("stat", 4, "EIO", "var/lib/krv"), "[E] " + reason + "\n" + nextMessage);
}

TEST_F(RegistryFault, InOpeningTheNextFile) {
  expectFailure(writeCommand, fault("open", 1, "ENOSPC", "registry.next"), nextMessage);
}

TEST_F(RegistryFault, InWritingTheNextFile) {
  expectFailure(writeCommand, fault("write", 1, "ENOSPC", "registry.next"), nextMessage);
}

TEST_F(RegistryFault, InWritingALaterLineOfTheNextFile) {
  const std::string before = "timestamp=1 event=I package=other keyid=k\n";
  writeFile(file, before);
  const ProcessResult result = Support::run(writeCommand, fault("write", 2, "EDQUOT", "registry.next"));
  EXPECT_EQ(result.output, nextMessage);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(readFile(file), before);
}

TEST_F(RegistryFault, InClosingTheNextFile) {
  expectFailure(writeCommand, fault("close", 1, "EIO", "registry.next"), nextMessage);
}

TEST_F(RegistryFault, InRenaming) {
  const std::string reason =
      fs::filesystem_error("cannot rename", nextFile, file, std::make_error_code(std::errc::io_error)).what();
  expectFailure(writeCommand, fault("rename", 1, "EIO", "registry.next"),
                "[E] " + reason + "\n[E] Couldn't move " + nextFile.string() + " to " + file.string() +
                    "\n[E] Couldn't atomically update registry: " + quoted(nextFile) + " -> " + quoted(file) + "\n");
  EXPECT_EQ(readFile(nextFile), line(2));
  EXPECT_EQ(Support::run(writeCommand).status, 0);
  EXPECT_EQ(readFile(file), line(2));
}

} // namespace
