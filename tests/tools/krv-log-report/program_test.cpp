// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/environment.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"
#include "tests/tools/krv-log-report/described.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Support::ProcessResult;

class LogReportProgram : public testing::Test {
protected:
  static ProcessResult run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), Support::program("krv-log-report"));
    return Support::run(arguments);
  }

  std::string fileWith(const std::string& log) const {
    Support::writeFile(m_folder.path() / "log", log);
    return m_folder.path() / "log";
  }

  Support::TempDirectory m_folder;
};

void expectResult(const ProcessResult& result, int status, const std::string& output, const std::string& errors) {
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.output, output);
  EXPECT_EQ(result.errors, errors);
}

const std::string eventful =
    installed("notes.rpm") + "noise\n" + failed("No \x1b[31m", "\xc3\xa4\n.rpm") + notNewer("maps.rpm") + timeLine;

TEST_F(LogReportProgram, PrintsATable) {
  expectResult(run({fileWith(eventful)}), 0,
               "ENTRY      OUTCOME    REASON        DETAIL\n"
               "notes.rpm  installed\n"
               "\xc3\xa4\\x0a.rpm  failed     ServiceError  No \\x1b[31m\n"
               "maps.rpm   skipped    NotNewer\n"
               "3 packages: 1 installed, 1 failed, 1 skipped, 3 seconds\n",
               "krv-log-report: line 2 is not a whole line of the tool: noise\n");
}

TEST_F(LogReportProgram, PrintsATableForEachRunOfAJournal) {
  const auto entry = [](const std::string& boot, const std::string& message) {
    return "{\"_MACHINE_ID\":\"m\",\"_BOOT_ID\":\"" + boot +
           "\",\"_SYSTEMD_UNIT\":\"krv-pre-installer.service\",\"__REALTIME_TIMESTAMP\":\"1700000000000001\","
           "\"MESSAGE\":\"" +
           message + "\"}\n";
  };
  const std::string head = "2023-11-14T22:13:20.000001Z  machine m  boot ";
  expectResult(run({fileWith(entry("1", "[E] Gone") + entry("1", "[E] Failed to create dbus proxy for KRV service") +
                             entry("2", "[I] Time spent for pre-installation: 1 seconds") + entry("2", "[E] Bad"))}),
               0,
               head + "1\n0 packages; the service cannot be reached: Gone\n\n" + head +
                   "2\n0 packages, 1 second; the run was aborted: Bad\n",
               "");
}

TEST_F(LogReportProgram, PrintsJsonLines) {
  const std::string noIds = "\"machine_id\":null,\"boot_id\":null,\"invocation_id\":null,\"time\":null}\n";
  const std::string ids = "\"machine_id\":\"m\",\"boot_id\":\"b\",\"invocation_id\":\"i\","
                          "\"time\":\"2023-11-14T22:13:20.000001Z\"}\n";
  expectResult(run({"--format", "json", fileWith(installed("a\xff") + timeLine)}), 0,
               "{\"type\":\"package\",\"entry\":\"a?\",\"entry_hex\":\"61ff\",\"outcome\":\"installed\","
               "\"reason\":null,\"detail\":null," +
                   noIds + "{\"type\":\"run\",\"end\":\"complete\",\"packages\":1,\"seconds\":3,\"detail\":null," +
                   noIds,
               "");
  expectResult(run({"--format", "json",
                    fileWith("{\"MESSAGE\":\"[E] a\",\"_MACHINE_ID\":\"m\",\"_BOOT_ID\":\"b\","
                             "\"_SYSTEMD_INVOCATION_ID\":\"i\",\"_SYSTEMD_UNIT\":\"krv-pre-installer.service\","
                             "\"__REALTIME_TIMESTAMP\":\"1700000000000001\"}\n")}),
               0, "{\"type\":\"run\",\"end\":\"cut\",\"packages\":0,\"seconds\":null,\"detail\":\"a\"," + ids, "");
}

TEST_F(LogReportProgram, ReadsStandardInput) {
  const ProcessResult result = Support::run({"sh", "-c", "\"$0\" <\"$1\"", Support::program("krv-log-report"),
                                             fileWith("[I] Time spent for pre-installation: 1 seconds\n")});
  expectResult(result, 0, "0 packages, 1 second\n", "");
}

TEST_F(LogReportProgram, CountsTheUnknownLinesAfterTheFirst) {
  std::string log;
  for (int i = 0; i < 100; ++i)
    log += "noise\n";
  const ProcessResult result = run({fileWith(log + std::string(300, 'x'))});
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(result.errors.ends_with("krv-log-report: line 20 is not a whole line of the tool: noise\n"
                                      "krv-log-report: 81 more lines are not whole lines of the tool\n"));
}

TEST_F(LogReportProgram, RefusesWrongUsage) {
  const std::string hint = "\nTry: krv-log-report --help\n";
  expectResult(run({"--nothing"}), 2, "", "krv-log-report: The following argument was not expected: --nothing" + hint);
  EXPECT_EQ(run({"--format", "xml"}).status, 2);
  EXPECT_EQ(run({"a", "b"}).status, 2);
}

TEST_F(LogReportProgram, TellsItsVersionAndUsage) {
  expectResult(run({"--version"}), 0, "krv-log-report " KRV_VERSION "\n", "");
  const ProcessResult help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.output.starts_with("Tell what became of each package"));
}

TEST_F(LogReportProgram, FailsWithoutItsInputOrOutput) {
  const std::string missing = m_folder.path() / "missing\n";
  const std::string shown = (m_folder.path() / "missing\\x0a").string();
  expectResult(run({missing}), 1, "", "krv-log-report: " + shown + ": No such file or directory\n");
  EXPECT_EQ(run({m_folder.path().string()}).status, 1);
  expectResult(
      Support::run({"sh", "-c", "\"$0\" \"$1\" >/dev/full", Support::program("krv-log-report"), fileWith(timeLine)}), 1,
      "", "krv-log-report: standard output cannot be written\n");
}

/// 1,000,000 lines about few entries.
TEST_F(LogReportProgram, ReadsALongLogInLittleMemory) {
  const fs::path path = m_folder.path() / "log";
  {
    std::string run;
    for (int i = 0; i < 499; ++i)
      run += notNewer(std::to_string(i));
    std::ofstream log(path);
    for (int i = 0; i < 1000; ++i)
      log << run << "noise\nnoise\n";
  }
#if defined(__SANITIZE_ADDRESS__)
  const std::string limit = "unlimited";
#else
  const std::string limit = "40000";
#endif
  const ProcessResult result = Support::run(
      {"sh", "-c", "ulimit -v " + limit + "; \"$0\" \"$1\" | tail -n 1", Support::program("krv-log-report"), path});
  EXPECT_EQ(result.output, "499 packages: 499 ambiguous; the log ends before the run\n");
}

TEST_F(LogReportProgram, DoesNotKeepAnEndlessLine) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer needs more memory";
#endif
  const std::string limit = "ulimit -v 100000; ";
  const ProcessResult result =
      Support::run({"sh", "-c", limit + "head -c 300000000 /dev/zero | \"$0\"", Support::program("krv-log-report")});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
}

} // namespace
