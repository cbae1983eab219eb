// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/docs/man/message_texts.h"
#include "tests/driver/device.h"
#include "tests/support/bus/private_bus.h"
#include "tests/support/process/environment.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Support::readFile;
using Support::writeFile;

const fs::path sources = KRV_SOURCE_DIRECTORY;
const fs::path pages = sources / "docs/man";

/// Texts that are in the program, because they share a file with needed code, but that it never writes. If the program
/// begins to write one, the manual page must explain it.
const MessageTexts neverWritten = {
    // The program reads the signatures without verifying them.
    "[E] Package doesn't have developer certificate",
    "[E] Package is signed with a non-legal developer certificate",
    "[E] Package is signed with a non-legal source certificate",
    "[E] Package signature verification failed",
    // The program reads the registry and never writes it.
    "[E] Couldn't atomically update registry: ",
    "[E] Couldn't load registry records",
    "[E] Couldn't move ",
    "[E] Couldn't write records to the next registry: ",
    // The program's only action on file-system entries is to create directories.
    " (path already exists)",
    " pointing to ",
    " to ",
    "[E] Attempt to check if the path is an empty directory, but the path is not a directory",
    "[E] Couldn't create hardlink ",
    "[E] Couldn't create symlink ",
    "[E] Couldn't get permissions for: ",
    "[E] Couldn't read symlink: ",
    "[E] Couldn't remove filesystem entry: ",
    "[E] Couldn't set permissions for ",
};

/// The general messages of the error codes, for which the log shows the message of the throwing code, and the list of
/// the messages, which is not read as a source.
const std::set<fs::path> notRead = {sources / "common/error/error_table.h", sources / "driver/log/messages.h"};

/// Whether the program contains the text as a string of its own.
bool holds(const std::string& program, const std::string& text) {
  const std::string withoutMark = text.starts_with('[') ? text.substr(4) : text;
  return program.find(withoutMark + '\0') != std::string::npos;
}

MessageTexts textsInTheTool() {
  const std::string tool = readFile(Support::program("krv-pre-installer"));
  MessageTexts texts;
  for (const MessageForm& form : messageForms)
    if (holds(tool, std::string(form.text)))
      texts.merge(textsOfForm(form));
  for (const char* folder : {"common", "core", "driver", "service"}) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(sources / folder)) {
      const fs::path extension = entry.path().extension();
      if ((extension != ".cpp" && extension != ".h") || notRead.contains(entry.path()))
        continue;
      for (const std::string& text : textsOfSource(readFile(entry.path())))
        if (holds(tool, text))
          texts.insert(text);
    }
  }
  return texts;
}

std::vector<PageMessage> documentedMessages() {
  return messagesOfPage(readFile(pages / "krv-pre-installer.8"));
}

/// One line per text, so that a failed comparison shows lines.
std::string lines(const MessageTexts& texts) {
  std::string result;
  for (const std::string& text : texts)
    result += text + "|\n";
  return result;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    result.push_back(line);
  return result;
}

TEST(ManualPages, ExplainExactlyTheMessagesOfTheTool) {
  MessageTexts known = neverWritten;
  for (const PageMessage& message : documentedMessages())
    known.insert(message.texts.begin(), message.texts.end());
  EXPECT_EQ(lines(known), lines(textsInTheTool()));
}

TEST(ManualPages, ExplainNoMessageTwice) {
  std::vector<std::string> patterns;
  for (const PageMessage& message : documentedMessages())
    patterns.push_back(message.pattern);
  const std::set<std::string> different(patterns.begin(), patterns.end());
  EXPECT_EQ(patterns.size(), different.size());
}

TEST(ManualPages, FindTheTextsOfASourceFile) {
  EXPECT_EQ(textsOfSource(R"x(#include "no piece"
    // "a comment" isn't one
    /* "neither is" this */
    const int number = 300'000; const char character = '"';
    throw Error("Broken"
      " in two: " + path + " to " + 'x' + "word");
    throw Error("Said \"so\" twice");
    throw Error("Went wrong: ", "\\");)x"),
            (MessageTexts{"[E] Broken in two: ", " to ", "[E] Said \"so\" twice", "[E] Went wrong: "}));
}

TEST(ManualPages, FindTheTextsOfAForm) {
  EXPECT_EQ(textsOfForm({Message::RegistryNotReplaced, LogLevel::Warning, "From here {path} to {path} -> '{text}'"}),
            (MessageTexts{"[W] From here ", " to "}));
  EXPECT_EQ(textsOfForm({Message::ErrorText, LogLevel::Error, "{text}"}), MessageTexts());
  EXPECT_EQ(textsOfForm({Message::NoLock, LogLevel::Info, "No lock"}), MessageTexts{"[I] No lock"});
}

/// The log lines in the code spans of a Markdown document, up to the first placeholder.
MessageTexts quotedLines(const std::string& document) {
  static const std::regex quote("`(\\[[IWE]\\] [^`]+)`");
  MessageTexts quoted;
  for (std::sregex_iterator match(document.begin(), document.end(), quote), end; match != end; ++match) {
    const std::string line = (*match)[1];
    quoted.insert(line.substr(0, line.find("…")));
  }
  return quoted;
}

/// Whether this is a text of a bus if the service is missing or does not start; only the quoted part is compared.
bool isOfABus(const std::string& line) {
  return std::ranges::any_of(Support::textsOfEveryBus(), [&](const Support::BusTexts& bus) {
    return ("[E] " + bus.noService).starts_with(line) || ("[E] " + bus.deadService).starts_with(line);
  });
}

/// Whether this is the text of an exception of the standard library; tests/packaging/confinement_test.cpp has the cases
/// in which the tool logs them.
bool isOfTheStandardLibrary(const std::string& line) {
  const auto begins = [&](const char* failure) {
    const std::filesystem::filesystem_error error(failure, "/", std::make_error_code(std::errc::permission_denied));
    return (std::string("[E] ") + error.what()).starts_with(line);
  };
  return begins("directory iterator cannot open directory") || begins("cannot get file time");
}

TEST(Documents, QuoteTheLogLetterByLetter) {
  const MessageTexts quoted = quotedLines(readFile(sources / "docs/troubleshooting.md"));
  const MessageTexts known = textsInTheTool();
  MessageTexts unknown;
  for (const std::string& line : quoted)
    if (!known.contains(line) && !isOfABus(line) && !isOfTheStandardLibrary(line))
      unknown.insert(line);
  EXPECT_EQ(lines(unknown), "");
  EXPECT_GT(quoted.size(), 10u);
}

class PagesAndTheLog : public testing::Test {
protected:
  /// The log of a run with many messages of all levels.
  std::string eventfulLog() {
    m_device.add({.name = "notes"});
    m_device.add({.name = "unsigned"}, "");
    m_device.add({.name = "old"});
    m_device.service().hasInstalled("old", "2.0-1", Support::Pki::instance().keyId("alice"));
    m_device.add({.name = "foreign"});
    m_device.service().hasInstalled("foreign", "", "somebody");
    m_device.add({.name = "odd"});
    m_device.service().onGetPackage("odd").answer({{"general.version", "1-1"}});
    m_device.add({.name = "refused"});
    m_device.service().onInstall(m_device.preinstallDirectory() / "refused.rpm").fail("org.example.No", "Not now");
    writeFile(m_device.preinstallDirectory() / "a \"text\".txt", "no package");
    writeFile(m_device.registry(), "event=R\ntimestamp=1 event=R package=p keyid=k note=x\n");
    return m_device.run().log;
  }

  Device m_device;
};

TEST_F(PagesAndTheLog, AgreeOnEachLine) {
  const std::vector<std::string> log = split(eventfulLog());
  EXPECT_GT(log.size(), 15u);
  std::string unexplained;
  for (const std::string& line : log) {
    bool isExplained = false;
    for (const PageMessage& message : documentedMessages())
      isExplained = isExplained || std::regex_match(line, std::regex(message.pattern));
    if (!isExplained)
      unexplained += line + "\n";
  }
  EXPECT_EQ(unexplained, "");
}

/// The journal commands of the page, as the reader sees them.
std::vector<std::string> documentedCommands() {
  const std::string page = Support::runOrThrow({"mandoc", "-T", "markdown", (pages / "krv-pre-installer.8").string()});
  static const std::regex command("\n\t(journalctl [^\n]*)");
  std::vector<std::string> commands;
  for (std::sregex_iterator match(page.begin(), page.end(), command), end; match != end; ++match)
    commands.push_back((*match)[1]);
  return commands;
}

/// Makes a journal of one boot that contains `log` of the unit.
void writeJournal(const fs::path& journal, const std::string& log) {
  std::string entries;
  for (const std::string& line : split(log))
    entries += "__REALTIME_TIMESTAMP=1700000000000000\n_BOOT_ID=00112233445566778899aabbccddeeff\n"
               "_SYSTEMD_UNIT=krv-pre-installer.service\nMESSAGE=" +
               line + "\n\n";
  const std::string source = journal.string() + ".export";
  writeFile(source, entries);
  Support::runOrThrow({"/lib/systemd/systemd-journal-remote", "--output=" + journal.string(), source});
}

template <typename Condition>
std::string linesWith(const std::string& log, Condition condition) {
  std::string result;
  for (const std::string& line : split(log))
    if (condition(line))
      result += line + "\n";
  return result;
}

TEST_F(PagesAndTheLog, FindLinesInTheJournalAsDocumented) {
  const std::string log = eventfulLog();
  const fs::path journal = m_device.root() / "log.journal";
  writeJournal(journal, log);
  writeFile(m_device.root() / "log", log);
  const std::string programs = Support::program("krv-log-report").parent_path();
  const std::string start = "PATH=\"" + programs + ":$PATH\" && journalctl --quiet --file=" + journal.string();
  std::vector<std::string> found;
  for (const std::string& command : documentedCommands()) {
    const std::string options = command.substr(command.find(' '));
    const bool hasFormat = options.find(" -o ") != options.npos;
    found.push_back(Support::runOrThrow({"/bin/sh", "-c", start + (hasFormat ? "" : " --output=cat") + options}));
  }

  const auto isError = [](const std::string& line) { return line.starts_with("[E] "); };
  const auto isNotable = [&](const std::string& line) { return isError(line) || line.starts_with("[W] "); };
  const std::string head = "2023-11-14T22:13:20.000000Z  machine   boot 00112233445566778899aabbccddeeff\n";
  const std::string report = Support::runOrThrow({Support::program("krv-log-report"), m_device.root() / "log"});
  EXPECT_EQ(found, (std::vector{log, linesWith(log, isError), linesWith(log, isNotable), head + report}));
}

TEST(ManualPages, ShowTheResultingRegistry) {
  static const std::regex block("\\.Bd[^\n]*\n((timestamp=[^\n]*\n)*)\\.Ed");
  const std::string page = std::regex_replace(readFile(pages / "krv-registry.5"), std::regex("\\\\-"), "-");
  std::vector<std::string> examples;
  for (std::sregex_iterator match(page.begin(), page.end(), block), end; match != end; ++match)
    examples.push_back((*match)[1]);
  ASSERT_EQ(examples.size(), 2u);

  const Support::TempDirectory root;
  const Support::ScopedEnvironment rootVariable("KRV_ROOT_FS", root.path().string());
  writeFile(root / "var/lib/krv/registry", examples[0]);
  const auto added = Core::KRV::parseRecord(split(examples[1]).back());
  ASSERT_TRUE(added && Core::KRV::Registry().writeRecord(*added));
  EXPECT_EQ(readFile(root / "var/lib/krv/registry"), examples[1]);
}

TEST(ManualPages, AreValidMdoc) {
  for (const char* page :
       {"krv-pre-installer.8", "krv-registry.5", "krv-package-signature.1", "krv-image-check.1", "krv-log-report.1"}) {
    const Support::ProcessResult lint =
        Support::run({"mandoc", "-T", "lint", "-W", "warning", (pages / page).string()});
    EXPECT_EQ(lint.output + lint.errors, "");
    EXPECT_EQ(lint.status, 0);
  }
}

} // namespace
