// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/environment.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"
#include "tests/tools/krv-log-report/described.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>

namespace {

const std::string boot = "00112233445566778899aabbccddeeff";
const std::string otherBoot = "ffeeddccbbaa99887766554433221100";

/// The entries of a journal, as journalctl -o json writes them.
class Entries {
public:
  std::string machine = "m";
  std::string bootId = boot;
  std::string invocation = "i";
  std::string unit = "krv-pre-installer.service";

  Entries& add(const std::string& log) {
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
      addRaw("\"" + escaped(line) + "\"");
    return *this;
  }

  Entries& addRaw(const std::string& message, const std::string& more = "") {
    m_text += "{\"_MACHINE_ID\":\"" + machine + "\",\"MESSAGE\":" + message + ",\"_BOOT_ID\":\"" + bootId +
              "\",\"_SYSTEMD_INVOCATION_ID\":\"" + invocation + "\",\"_SYSTEMD_UNIT\":\"" + unit +
              "\",\"__REALTIME_TIMESTAMP\":\"1700000000000001\"" + more + "}\n";
    return *this;
  }

  const std::string& text() const { return m_text; }

private:
  static std::string escaped(const std::string& line) {
    std::string text;
    for (const char character : line)
      text += (character == '"' || character == '\\' ? "\\" : "") + std::string{character};
    return text;
  }

  std::string m_text;
};

TEST(LogReportJournal, ReadsTheMessages) {
  EXPECT_EQ(described(Entries().add(installed("a\"b") + failed("No", "c") + timeLine).text()),
            "a\"b: installed\nc: failed (ServiceError): No\ncomplete: 3 s\n");
}

TEST(LogReportJournal, ReadsMessagesInBytes) {
  std::string bytes = "[";
  for (const char byte : "[I] The package successfully pre-installed: \"" + pathOf("\xff") + "\"")
    bytes += std::to_string(static_cast<unsigned char>(byte)) + ",";
  bytes.back() = ']';
  EXPECT_EQ(described(Entries().addRaw(bytes).add(timeLine).text()), "\xff: installed\ncomplete: 3 s\n");
}

TEST(LogReportJournal, JoinsALineThatTheJournalHasSplit) {
  const std::string more = ",\"_LINE_BREAK\":\"line-max\"";
  EXPECT_EQ(described(Entries()
                          .addRaw("\"[I] Time spent for \"", more)
                          .addRaw("\"pre-installation: 1\"", more)
                          .addRaw("\"2 seconds\"")
                          .text()),
            "complete: 12 s\n");
}

TEST(LogReportJournal, ReadsOnlyTheUnitOfTheTool) {
  Entries entries;
  entries.add(installed("a"));
  entries.unit = "init.scope";
  entries.add(installed("b") + "Started krv-pre-installer.service");
  entries.unit = "krv-pre-installer.service";
  entries.add(timeLine);
  EXPECT_EQ(described(entries.text()), "a: installed\ncomplete: 3 s\n");
}

TEST(LogReportJournal, TellsMachinesAndRunsApart) {
  Entries entries;
  entries.add(installed("a"));
  entries.machine = "n";
  entries.add(failed("No", "a"));
  entries.machine = "m";
  entries.add(timeLine);
  entries.invocation = "j";
  entries.add(notNewer("a"));
  entries.bootId = otherBoot;
  entries.add(notNewer("a") + timeLine);
  entries.machine = "n";
  entries.bootId = boot;
  entries.invocation = "i";
  entries.add(timeLine);
  EXPECT_EQ(described(entries.text()), "a: installed\ncomplete: 3 s\n"
                                       "a: skipped (NotNewer)\ncut\n"
                                       "a: skipped (NotNewer)\ncomplete: 3 s\n"
                                       "a: failed (ServiceError): No\ncomplete: 3 s\n");
}

TEST(LogReportJournal, NoticesATextThatPretendsTheEndOfTheRun) {
  EXPECT_EQ(described(Entries()
                          .add(failed("No\n" + installed("victim") + timeLine + "[E] Package installation error: No",
                                      "evil") +
                               notNewer("victim") + timeLine)
                          .text()),
            "victim: ambiguous: No\nevil: failed (ServiceError): No\nambiguous: 3 s\n");
}

TEST(LogReportJournal, TellsWhyARunWasAborted) {
  EXPECT_EQ(described(Entries().add("[E] a\n" + timeLine + "[E] b\n").text()), "aborted: 3 s: a; b\n");
}

TEST(LogReportJournal, NamesLinesThatAreNoEntries) {
  Entries entries;
  entries.add(installed("a")).addRaw("null").addRaw("[1,2,300]").addRaw("[\"x\"]").addRaw("7");
  EXPECT_EQ(described(entries.text() + "{\n[]\nx\n\n" + Entries().add(timeLine).text()),
            "unknown: 2\nunknown: 3\nunknown: 4\nunknown: 5\nunknown: 6\nunknown: 7\nunknown: 8\nunknown: 9\n"
            "a: installed\ncomplete: 3 s\n");
}

TEST(LogReportJournal, ReadsTheRunsOfManyMachines) {
  Entries entries;
  std::string expected;
  for (int i = 0; i < 3000; ++i) {
    entries.machine = std::to_string(i);
    entries.add(timeLine);
    expected += "complete: 3 s\n";
  }
  EXPECT_EQ(described(entries.text()), expected);
}

/// A journal of systemd's own programs.
TEST(LogReportJournal, ReadsARealJournal) {
  const Support::TempDirectory folder;
  const std::filesystem::path journal = folder.path() / "log.journal";
  const std::string log =
      installed("a") + unreadable("no", "b \xc3\xa4\x1b[31m") + failed("No\nreally", "c") + timeLine;
  std::string entries;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);)
    entries += "__REALTIME_TIMESTAMP=1700000000000000\n_MACHINE_ID=" + otherBoot + "\n_BOOT_ID=" + boot +
               "\n_SYSTEMD_UNIT=krv-pre-installer.service\nMESSAGE=" + line + "\n\n";
  Support::writeFile(folder.path() / "export", entries);
  Support::runOrThrow(
      {"/lib/systemd/systemd-journal-remote", "--output=" + journal.string(), folder.path() / "export"});
  EXPECT_EQ(described(Support::runOrThrow({"journalctl", "--quiet", "--unit=krv-pre-installer", "--output=json",
                                           "--all", "--file=" + journal.string()})),
            "a: installed\nb \xc3\xa4\x1b[31m: skipped (Unreadable): no\nc: failed (ServiceError): No\nreally\n"
            "complete: 3 s\n");
}

} // namespace
