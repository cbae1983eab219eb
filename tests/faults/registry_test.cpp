// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/faults/enumeration.h"
#include "tests/support/faults/system_calls.h"
#include "tests/support/process/environment.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <system_error>

namespace {

namespace fs = std::filesystem;
using Support::readFile;

std::string recordOf(const std::string& package, int timestamp) {
  return "timestamp=" + std::to_string(timestamp) + " event=I package=" + package + " keyid=k";
}

std::string contentOf(const fs::path& file) {
  return fs::exists(file) ? readFile(file) : "";
}

class RegistryFaults : public Enumeration {
protected:
  /// The operation on a registry with the content `before`, or on an empty root.
  Operation on(const std::string& before, const std::vector<std::string>& arguments) {
    Operation operation;
    operation.command = {Support::program("registry_tool")};
    operation.command.insert(operation.command.end(), arguments.begin(), arguments.end());
    operation.environment = {{"KRV_ROOT_FS", folder.path().string()}};
    operation.prepare = [this, before] {
      fs::remove_all(folder / "var");
      if (!before.empty())
        Support::writeFile(registry, before);
    };
    return operation;
  }

  void expectThatItStillWorks(const std::string& content) {
    const Support::ScopedEnvironment root("KRV_ROOT_FS", folder.path().string());
    std::string read;
    const auto add = [&](const Core::KRV::RegistryRecord& record) { read += toString(record) + "\n"; };
    EXPECT_TRUE(Core::KRV::Registry().foreachRecord(add));
    EXPECT_EQ(read, content);
    EXPECT_TRUE(Core::KRV::Registry().writeRecord(*Core::KRV::parseRecord(recordOf("later", 99))));
    EXPECT_EQ(contentOf(registry), content + recordOf("later", 99) + "\n");
  }

  std::string quoted(const fs::path& path) const { return "\"" + path.string() + "\""; }

  /// The error line of exists() if it cannot find out whether the registry exists; it then returns false.
  std::string doubtAfter(const Disturbed& run) const {
    return "[E] filesystem error: status: " + reasonOf(run).message() + " [" + run.call.path + "]\n";
  }

  /// The log lines that are allowed after a failed call that makes the operation fail.
  std::vector<std::string> linesAfter(const Disturbed& run) const {
    const std::string load = "[E] Couldn't load registry records\n";
    const std::string open = "[E] Couldn't open registry: " + quoted(registry) + "\n";
    if (run.call.path == lockFile)
      return {"[E] Couldn't create the registry lock file: " + quoted(lockFile) + "\n",
              "[E] " + reasonOf(run).message() + "\n[E] Couldn't get an exclusive registry lock\n"};
    if (run.call.path == registry && operationWrites)
      return {open + load, doubtAfter(run) + open + load};
    if (run.call.path == registry)
      return {open, doubtAfter(run) + open};
    const std::string next = "[E] Couldn't write records to the next registry: " + quoted(nextFile) + "\n";
    const std::string update = "[E] Couldn't move " + nextFile.string() + " to " + registry.string() +
                               "\n[E] Couldn't atomically update registry: " + quoted(nextFile) + " -> " +
                               quoted(registry) + "\n";
    const auto rename = fs::filesystem_error("cannot rename", nextFile, registry, reasonOf(run));
    if (run.call.path == nextFile)
      return {next, "[E] " + std::string(rename.what()) + "\n" + update};
    // A directory above them. If its stat fails, the library may report it as missing.
    const std::string create = "Couldn't create directory: " + registry.parent_path().string() + "\n";
    const std::string reason = directoryLine(reasonOf(run));
    return {reason + create, directoryLine(std::make_error_code(std::errc::no_such_file_or_directory)) + create,
            reason + next, reason + update};
  }

  bool operationWrites = false;
  fs::path registry = folder / "var/lib/krv/registry";
  fs::path lockFile = folder / "var/lib/krv/registry.lock";
  fs::path nextFile = folder / "var/lib/krv/registry.next";

private:
  static std::error_code reasonOf(const Disturbed& run) { return {run.error, std::generic_category()}; }

  std::string directoryLine(const std::error_code& reason) const {
    const auto error = fs::filesystem_error("cannot create directories", registry.parent_path(), reason);
    return "[E] " + std::string(error.what()) + "\n";
  }
};

class RegistryWriteFaults : public RegistryFaults {
protected:
  void enumerateWriting(const std::string& before, const std::string& after,
                        const std::map<std::string, std::size_t>& atLeast) {
    Operation operation = on(before, {"write", recordOf("p", 9)});
    operationWrites = true;
    operation.atLeast = atLeast;
    operation.checkUndisturbed = [this, after](const Support::ProcessResult& process) {
      EXPECT_EQ(process.status, 0);
      EXPECT_EQ(process.output, "");
      EXPECT_EQ(contentOf(registry), after);
    };
    operation.checkDisturbed = [this, before, after](const Disturbed& run) {
      const std::string content = contentOf(registry);
      EXPECT_THAT(content, testing::AnyOf(before, after));
      if (!run.wasKilled()) {
        EXPECT_EQ(run.process.errors, "");
        EXPECT_EQ(content, run.process.status == 0 ? after : before);
        // The next registry looks complete, but its data may be lost.
        EXPECT_FALSE(run.call.name == "close" && run.call.path == nextFile && run.process.status == 0);
        expectAgreement(run);
      }
      expectThatItStillWorks(content);
    };
    enumerate(operation);
  }

private:
  void expectAgreement(const Disturbed& run) {
    if (run.process.status != 0) {
      EXPECT_THAT(linesAfter(run), testing::Contains(run.process.output));
    } else if (run.call.path == registry) {
      // The second stat may succeed and report the registry as missing.
      EXPECT_THAT(run.process.output, testing::AnyOf("", doubtAfter(run)));
    } else {
      EXPECT_EQ(run.process.output, "");
    }
  }
};

const std::string others = recordOf("a", 1) + "\n" + recordOf("b", 2) + "\n";

TEST_F(RegistryWriteFaults, WriteRecord) {
  enumerateWriting(
      others + recordOf("p", 3) + "\n" + recordOf("c", 4) + "\n",
      others + recordOf("c", 4) + "\n" + recordOf("p", 9) + "\n",
      {{"openat", 4}, {"ftruncate", 1}, {"fcntl", 1}, {"read", 2}, {"write", 4}, {"rename", 1}, {"close", 4}});
}

TEST_F(RegistryWriteFaults, WriteTheFirstRecord) {
  enumerateWriting(
      "", recordOf("p", 9) + "\n",
      {{"mkdir", 3}, {"openat", 3}, {"ftruncate", 1}, {"fcntl", 1}, {"write", 1}, {"rename", 1}, {"close", 3}});
}

TEST_F(RegistryFaults, ForeachRecord) {
  std::string content;
  for (int i = 0; i < 400; ++i) // long enough for several reads
    content += recordOf(std::string(400, 'p') + std::to_string(i), i) + "\n";
  Operation operation = on(content, {"read"});
  operation.atLeast = {{"openat", 3}, {"ftruncate", 1}, {"fcntl", 1}, {"read", 3}, {"close", 3}};
  operation.checkUndisturbed = [&](const Support::ProcessResult& process) {
    EXPECT_EQ(process.status, 0);
    EXPECT_EQ(process.output, content);
  };
  operation.checkDisturbed = [&](const Disturbed& run) {
    EXPECT_TRUE(contentOf(registry) == content);
    EXPECT_FALSE(fs::exists(nextFile));
    if (!run.wasKilled() && run.process.status == 0) {
      // If the registry's stat fails, reading treats the registry as missing and logs the reason.
      EXPECT_TRUE(run.process.output == content ||
                  (run.call.name == Support::statusCall && run.process.output == doubtAfter(run)));
    } else if (!run.wasKilled()) {
      // Complete records from the first on, then the error.
      std::string records = run.process.output.substr(0, run.process.output.find("[E] "));
      records.resize(records.find("Couldn't") == records.npos ? records.size() : records.find("Couldn't"));
      EXPECT_TRUE(content.starts_with(records) && (records.empty() || records.ends_with('\n')));
      EXPECT_THAT(linesAfter(run), testing::Contains(run.process.output.substr(records.size())));
    }
    expectThatItStillWorks(content);
  };
  enumerate(operation);
}

} // namespace
