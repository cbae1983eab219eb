// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/archive.h"
#include "common/rpm/handles.h"
#include "tests/common/rpm/archive_fixture.h"
#include "tests/common/rpm/one_processor.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rpm/rpmmacro.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using ArchiveTest::describe;
using ArchiveTest::Events;
using ArchiveTest::mixedPackage;
using ArchiveTest::OneProcessor;
using ArchiveTest::recording;
using ArchiveTest::textOf;
using Common::Rpm::ArchiveEntry;
using Common::Rpm::ArchiveReader;
using Common::Rpm::ExtractionHandlers;
using Common::Rpm::HardLinkDescription;
using Support::errorOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* contentError = "Internal: Couldn't read content from rpm package";

class Archive : public ArchiveTest::Fixture {
protected:
  /// Extracts with only the handler `regularFile`, because the package has only files.
  void extractFiles(const std::function<std::any(ArchiveReader&, const ArchiveEntry&)>& regularFile) const {
    ArchiveReader archive = open();
    archive.extract("/target", {.directory = {},
                                .regularFile = [&](const ArchiveEntry& entry) { return regularFile(archive, entry); },
                                .symbolicLink = {},
                                .hardLinks = [](const HardLinkDescription&) {}});
  }

  void expectWriteError(const std::filesystem::path& destination, const std::string& message) const {
    extractFiles([&](ArchiveReader& archive, const ArchiveEntry&) {
      EXPECT_EQ(errorOf([&] { archive.writeContent(destination); }), "Filesystem: " + message + destination.string());
      return std::any();
    });
  }

  Events listed() const {
    Events lines;
    ArchiveReader::openFileList(package().string()).forEachFile("/target", [&](const ArchiveEntry& entry) {
      lines.push_back(describe(entry));
    });
    return lines;
  }
};

volatile std::sig_atomic_t alarms = 0;

std::ptrdiff_t threads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

/// Limits the process to this many more descriptors.
class DescriptorLimit {
public:
  explicit DescriptorLimit(std::size_t count) {
    getrlimit(RLIMIT_NOFILE, &m_before);
    std::vector<int> numbers;
    while (numbers.size() < count)
      numbers.push_back(dup(STDERR_FILENO));
    const rlimit limit = {static_cast<rlim_t>(numbers.back()) + 1, m_before.rlim_max};
    std::ranges::for_each(numbers, close);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_before); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
  rlimit m_before = {};
};

/// A package with one file of this many bytes.
Support::PackageInput fileOf(std::size_t size) {
  return {.install = "mkdir -p %{buildroot}/opt; head -c " + std::to_string(size) +
                     " /dev/zero | tr '\\0' x > %{buildroot}/opt/file",
          .files = "/opt/file"};
}

TEST_F(Archive, PassesEveryEntryOnce) {
  build(mixedPackage);
  EXPECT_THAT(extracted(),
              ElementsAre("0 directory /target/opt/sample 755 ima", //
                          "1 file /target/opt/sample/empty 644 ima: ", "2 directory /target/opt/sample/folder 750 ima",
                          "3 file /target/opt/sample/folder/first 644 ima: first\n",
                          "4 link /target/opt/sample/link 777 ima -> folder/first",
                          "6 file /target/opt/sample/second 640 ima: second\n",
                          "5 file /target/opt/sample/one 644 ima: shared\n",
                          "/target/opt/sample/one is also 7 /target/opt/sample/two"));
}

TEST_F(Archive, ReportsTwoHardLinksForAFileWithThreeNames) {
  build({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; echo shared > b; ln b c; ln b a",
         .files = "/opt/*"});
  EXPECT_THAT(extracted(), ElementsAre("0 file /target/opt/a 644 ima: shared\n",
                                       "/target/opt/a is also 1 /target/opt/b 2 /target/opt/c"));
}

TEST_F(Archive, KeepsHardLinkGroupsApart) {
  build({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; echo one > a; ln a c; echo two > b; ln b d",
         .files = "/opt/*"});
  EXPECT_THAT(extracted(),
              ElementsAre("0 file /target/opt/a 644 ima: one\n", "1 file /target/opt/b 644 ima: two\n",
                          "/target/opt/a is also 2 /target/opt/c", "/target/opt/b is also 3 /target/opt/d"));
}

TEST_F(Archive, ReportsAllNamesOfAnEmptyFile) {
  build({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; : > a; ln a b; ln a c", .files = "/opt/*"});
  EXPECT_THAT(extracted(),
              ElementsAre("0 file /target/opt/a 644 ima: ", "/target/opt/a is also 1 /target/opt/b 2 /target/opt/c"));
}

TEST_F(Archive, GivesTheHardLinkHandlerWhatTheFileHandlerReturned) {
  build({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; echo shared > a; ln a b", .files = "/opt/*"});
  ArchiveReader archive = open();
  std::string value;
  archive.extract(
      "/target",
      {.directory = {},
       .regularFile = [](const ArchiveEntry& entry) { return "made " + entry.path.string(); },
       .symbolicLink = {},
       .hardLinks = [&](const HardLinkDescription& group) { value = std::any_cast<std::string>(group.value); }});
  EXPECT_EQ(value, "made /target/opt/a");
}

TEST_F(Archive, DropsSetIdAndStickyBits) {
  build({.install = "mkdir -p %{buildroot}/opt/folder; cd %{buildroot}/opt; echo x > user; echo x > group",
         .files = "%attr(4711, root, root) /opt/user\n%attr(2755, root, root) /opt/group\n"
                  "%dir %attr(1777, root, root) /opt/folder"});
  EXPECT_THAT(extracted(),
              ElementsAre("0 directory /target/opt/folder 777 ima", "1 file /target/opt/group 755 ima: x\n",
                          "2 file /target/opt/user 711 ima: x\n"));
}

TEST_F(Archive, WarnsAboutEachSpecialFileAndContinues) {
  build({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; mkfifo b; echo x > a; echo y > e",
         .files = "/opt/*\n%dev(c, 1, 3) /opt/c\n%dev(b, 7, 0) /opt/d"});
  const Support::CapturedLog log;
  EXPECT_THAT(extracted(), ElementsAre("0 file /target/opt/a 644 ima: x\n", "4 file /target/opt/e 644 ima: y\n"));
  EXPECT_EQ(log.text(), "[W] Unexpected entry type in rpm package\n[W] Unexpected entry type in rpm package\n"
                        "[W] Unexpected entry type in rpm package\n");
}

TEST_F(Archive, SkipsGhostFiles) {
  build({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; echo x > a; echo x > b; ln b c",
         .files = "/opt/a\n%ghost /opt/b\n%ghost /opt/c\n%ghost /opt/never"});
  EXPECT_THAT(extracted(), ElementsAre("0 file /target/opt/a 644 ima: x\n"));
  EXPECT_THAT(listed(), ElementsAre("0 file /target/opt/a 644 ima", "1 file /target/opt/b 644 ima",
                                    "2 file /target/opt/c 644 ima", "3 file /target/opt/never 000 ima"));
}

TEST_F(Archive, OmitsAGhostFromItsHardLinkGroup) {
  build({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; echo x > a; ln a b; ln a c",
         .files = "%ghost /opt/a\n/opt/b\n/opt/c"});
  EXPECT_THAT(extracted(), ElementsAre("1 file /target/opt/b 644 ima: x\n", "/target/opt/b is also 2 /target/opt/c"));
}

TEST_F(Archive, IsEmptyForAPackageWithoutFiles) {
  build({.install = "", .files = ""});
  EXPECT_THAT(extracted(), IsEmpty());
  EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(Archive, LogsNothingForOrdinaryEntries) {
  build(mixedPackage);
  const Support::CapturedLog log;
  extracted();
  EXPECT_EQ(log.text(), "");
}

TEST_F(Archive, SignsOnlyExecutableConfigurationFiles) {
  build({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt; echo > a; echo > b; echo > c; echo > d",
         .files = "%config %attr(644, root, root) /opt/a\n%config %attr(654, root, root) /opt/b\n"
                  "%config(noreplace) %attr(640, root, root) /opt/c\n%attr(600, root, root) /opt/d"});
  EXPECT_THAT(listed(), ElementsAre("0 file /target/opt/a 644", "1 file /target/opt/b 654 ima",
                                    "2 file /target/opt/c 640", "3 file /target/opt/d 600 ima"));
}

TEST_F(Archive, SignsAllConfigurationFilesIfTheMacroIsSet) {
  build({.files = "%config /opt/sample/file"});
  rpmDefineMacro(nullptr, "_ima_sign_config_files 1", RMIL_CMDLINE);
  EXPECT_THAT(listed(), ElementsAre("0 file /target/opt/sample/file 644 ima"));
  rpmPopMacro(nullptr, "_ima_sign_config_files");
  rpmDefineMacro(nullptr, "_ima_sign_config_files 0", RMIL_CMDLINE);
  EXPECT_THAT(listed(), ElementsAre("0 file /target/opt/sample/file 644"));
  rpmPopMacro(nullptr, "_ima_sign_config_files");
}

TEST_F(Archive, ThrowsBadFunctionCallForAMissingHandler) {
  build(mixedPackage);
  const auto extractWithout = [&](auto member) {
    ArchiveReader archive = open();
    Events events;
    ExtractionHandlers handlers = recording(archive, events);
    handlers.*member = nullptr;
    archive.extract("/target", handlers);
  };
  EXPECT_THROW(extractWithout(&ExtractionHandlers::directory), std::bad_function_call);
  EXPECT_THROW(extractWithout(&ExtractionHandlers::regularFile), std::bad_function_call);
  EXPECT_THROW(extractWithout(&ExtractionHandlers::symbolicLink), std::bad_function_call);
  EXPECT_THROW(extractWithout(&ExtractionHandlers::hardLinks), std::bad_function_call);
}

TEST_F(Archive, PassesOnTheExceptionOfAHandler) {
  build(mixedPackage);
  ArchiveReader archive = open();
  Events events;
  ExtractionHandlers handlers = recording(archive, events);
  handlers.symbolicLink = [](const ArchiveEntry&) { throw std::out_of_range("no links"); };
  EXPECT_THROW(archive.extract("/target", handlers), std::out_of_range);
  EXPECT_EQ(events.size(), 4U);
}

TEST_F(Archive, SkipsUnreadContent) {
  build(mixedPackage);
  ArchiveReader archive = open();
  Events events;
  ExtractionHandlers handlers = recording(archive, events);
  handlers.regularFile = [](const ArchiveEntry&) { return std::any(); };
  archive.extract("/target", handlers);
  EXPECT_EQ(events.size(), 4U);
}

TEST_F(Archive, WritesContentLongerThanItsBuffer) {
  build(fileOf(300000));
  const std::filesystem::path destination = m_sandbox.path() / "made";
  extractFiles([&](ArchiveReader& archive, const ArchiveEntry&) {
    archive.writeContent(destination);
    return std::any();
  });
  EXPECT_EQ(Support::readFile(destination), std::string(300000, 'x'));
}

TEST_F(Archive, ReplacesTheContentOfTheDestination) {
  build({.files = "/opt/sample/file"});
  const std::filesystem::path destination = m_sandbox.path() / "made";
  Support::writeFile(destination, "something longer than that");
  extractFiles([&](ArchiveReader& archive, const ArchiveEntry&) {
    archive.writeContent(destination);
    return std::any();
  });
  EXPECT_EQ(Support::readFile(destination), "content\n");
}

TEST_F(Archive, CreatesAnEmptyDestinationForAnEmptyFile) {
  build(fileOf(0));
  const std::filesystem::path destination = m_sandbox.path() / "made";
  extractFiles([&](ArchiveReader& archive, const ArchiveEntry&) {
    archive.writeContent(destination);
    return std::any();
  });
  EXPECT_EQ(Support::readFile(destination), "");
}

TEST_F(Archive, ReadsContentIntoMemory) {
  build(fileOf(300000));
  extractFiles([&](ArchiveReader& archive, const ArchiveEntry&) {
    EXPECT_EQ(ArchiveTest::textOf(archive.readContent()), std::string(300000, 'x'));
    return std::any();
  });
}

TEST_F(Archive, ReportsADestinationThatCannotBeOpened) {
  build(fileOf(10));
  expectWriteError(m_sandbox.path() / "missing/file", "Couldn't open file for writing rpm content: ");
  expectWriteError(m_sandbox.path(), "Couldn't open file for writing rpm content: ");
}

TEST_F(Archive, FailsOnAFullDevice) {
  build(fileOf(300000));
  expectWriteError("/dev/full", "Couldn't write rpm package content to ");
}

// These few bytes stay in a buffer until the file is closed.
TEST_F(Archive, FailsOnAFullDeviceWithTheFirstBytes) {
  build(fileOf(10));
  expectWriteError("/dev/full", "Couldn't write rpm package content to ");
}

TEST_F(Archive, FailsAtTheFileSizeLimit) {
  build(fileOf(300000));
  const auto before = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit = {};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit small = {200000, limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  expectWriteError(m_sandbox.path() / "made", "Couldn't write rpm package content to ");
  setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, before);
}

TEST_F(Archive, EndsItsThreadWhenTheExtractionIsAborted) {
  if (OneProcessor::isAll())
    GTEST_SKIP() << "there is one processor, so there is no thread";
  build(fileOf(3'000'000)); // more than fits into the pipe between the two threads
  {
    const ArchiveReader unread = open();
    EXPECT_EQ(threads(), 2);
  }
  EXPECT_TRUE(Support::waitUntil([] { return threads() == 1; }));
  ArchiveReader archive = open();
  EXPECT_THROW(archive.extract("/target", {}), std::bad_function_call);
  archive = open();
  EXPECT_TRUE(Support::waitUntil([] { return threads() == 2; }));
}

TEST_F(Archive, StartsNoThreadOnOneProcessor) {
  build(fileOf(3'000'000));
  const OneProcessor limit;
  extractFiles([](ArchiveReader& archive, const ArchiveEntry&) {
    EXPECT_EQ(threads(), 1);
    EXPECT_TRUE(textOf(archive.readContent()) == std::string(3'000'000, 'x'));
    return std::any();
  });
}

TEST_F(Archive, LeavesSignalsToItsCaller) {
  build(fileOf(10));
  const auto blocked = [] {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::vector<int> signals;
    for (int signal = 1; signal < NSIG; ++signal) {
      if (sigismember(&mask, signal) == 1)
        signals.push_back(signal);
    }
    return signals;
  };
  const std::vector<int> before = blocked();
  const ArchiveReader archive = open();
  EXPECT_EQ(blocked(), before);
}

TEST_F(Archive, IsNotInterruptedBySignals) {
  build(fileOf(3'000'000));
  struct sigaction interrupting = {}; // without SA_RESTART
  interrupting.sa_handler = [](int) { alarms = alarms + 1; };
  struct sigaction before = {};
  sigaction(SIGALRM, &interrupting, &before);
  const itimerval often = {.it_interval = {.tv_sec = 0, .tv_usec = 100}, .it_value = {.tv_sec = 0, .tv_usec = 100}};
  setitimer(ITIMER_REAL, &often, nullptr);
  alarms = 0;
  const std::string content(3'000'000, 'x');
  EXPECT_TRUE(Support::waitUntil([&] {
    extractFiles([&](ArchiveReader& archive, const ArchiveEntry&) {
      EXPECT_TRUE(textOf(archive.readContent()) == content);
      return std::any();
    });
    return alarms > 1000;
  }));
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
}

TEST_F(Archive, ReportsThatNoDescriptorIsFree) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizers look at an exception through a pipe of their own, which they cannot have here";
#endif
  if (OneProcessor::isAll())
    GTEST_SKIP() << "there is one processor, so there is no pipe";
  build(fileOf(10));
  open(); // now the files that librpm keeps open are open
  {
    const DescriptorLimit limit(1); // one descriptor finds the file, another one opens it
    EXPECT_EQ(errorOf([&] { open(); }), "FileNotFound: Couldn't open rpm package");
  }
  // One for the file, two for the pipe, and librpm's duplicates of the pipe's ends.
  for (const std::size_t descriptors : {2U, 3U, 4U}) {
    const DescriptorLimit limit(descriptors);
    EXPECT_EQ(errorOf([&] { open(); }), "BadPackageFileFormat: Couldn't open rpm package for extraction");
  }
  const DescriptorLimit limit(5);
  EXPECT_THAT(extracted(), ElementsAre("0 file /target/opt/file 644 ima: xxxxxxxxxx"));
}

TEST_F(Archive, HasContentOnlyInTheHandlerOfRegularFiles) {
  build(mixedPackage);
  ArchiveReader archive = open();
  const std::filesystem::path destination = m_sandbox.path() / "made";
  const auto expectNone = [&](const auto&) {
    EXPECT_EQ(errorOf([&] { archive.writeContent(destination); }), contentError);
    EXPECT_EQ(errorOf([&] { archive.readContent(); }), contentError);
  };
  expectNone("before the walk");
  archive.extract("/target", {.directory = expectNone,
                              .regularFile = [](const ArchiveEntry&) { return std::any(); },
                              .symbolicLink = expectNone,
                              .hardLinks = expectNone});
  EXPECT_FALSE(std::filesystem::exists(destination));
}

TEST_F(Archive, ReadsContentOnlyOnce) {
  build(fileOf(10));
  extractFiles([&](ArchiveReader& archive, const ArchiveEntry&) {
    archive.readContent();
    EXPECT_EQ(errorOf([&] { archive.readContent(); }), contentError);
    return std::any();
  });
}

TEST_F(Archive, ExtractsOnlyOnce) {
  build(mixedPackage);
  ArchiveReader archive = open();
  Events events;
  archive.extract("/target", recording(archive, events));
  events.clear();
  EXPECT_EQ(errorOf([&] { archive.extract("/target", recording(archive, events)); }), contentError);
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(Archive, HasNoPayloadWhenOpenedAsAFileList) {
  for (const Support::PackageInput& input : {mixedPackage, Support::PackageInput{.install = "", .files = ""}}) {
    build(input);
    ArchiveReader archive = ArchiveReader::openFileList(package().string());
    Events events;
    EXPECT_EQ(errorOf([&] { archive.extract("/target", recording(archive, events)); }), contentError);
    EXPECT_EQ(errorOf([&] { archive.readContent(); }), contentError);
    EXPECT_THAT(events, IsEmpty());
  }
}

TEST_F(Archive, ListsTheFilesOfAReader) {
  build(mixedPackage);
  const Common::Rpm::Reader reader(package().string());
  const ArchiveReader archive = ArchiveReader::openFileList(reader);
  EXPECT_EQ(archive.header(), reader.header());
  Events lines;
  archive.forEachFile("/target", [&](const ArchiveEntry& entry) { lines.push_back(describe(entry)); });
  EXPECT_THAT(lines, ElementsAre("0 directory /target/opt/sample 755 ima", "1 file /target/opt/sample/empty 644 ima",
                                 "2 directory /target/opt/sample/folder 750 ima",
                                 "3 file /target/opt/sample/folder/first 644 ima",
                                 "4 link /target/opt/sample/link 777 ima -> folder/first",
                                 "5 file /target/opt/sample/one 644 ima", "6 file /target/opt/sample/second 640 ima",
                                 "7 file /target/opt/sample/two 644 ima"));
  EXPECT_EQ(listed(), lines);
}

TEST_F(Archive, ListsTheFilesWithoutTouchingThePayload) {
  build(mixedPackage);
  ArchiveReader archive = open();
  Events lines;
  archive.forEachFile("/target", [&](const ArchiveEntry& entry) { lines.push_back(describe(entry)); });
  EXPECT_EQ(lines, listed());
  Events events;
  archive.extract("/target", recording(archive, events));
  EXPECT_EQ(events.size(), 8U);
}

TEST_F(Archive, ThrowsBadFunctionCallForAnEmptyVisitor) {
  build(mixedPackage);
  const ArchiveReader archive = ArchiveReader::openFileList(package().string());
  EXPECT_THROW(archive.forEachFile("/target", nullptr), std::bad_function_call);
}

TEST_F(Archive, StillReadsHeaderTags) {
  build(mixedPackage);
  EXPECT_EQ(open().tag(Common::Rpm::Tag::Name), "sample");
}

TEST_F(Archive, FailsLikeAReaderForOtherFiles) {
  EXPECT_EQ(errorOf([&] { ArchiveReader::openForExtraction((m_sandbox.path() / "missing.rpm").string()); }),
            "FileNotFound: Couldn't open rpm package");
  EXPECT_EQ(errorOf([&] { ArchiveReader::openFileList((m_sandbox.path() / "missing.rpm").string()); }),
            "FileNotFound: Couldn't open rpm package");
  Support::writeFile(m_sandbox.path() / "text.rpm", "This is a text.\n");
  EXPECT_EQ(errorOf([&] { ArchiveReader::openForExtraction((m_sandbox.path() / "text.rpm").string()); }),
            "BadPackageFileFormat: Couldn't read rpm package");
}

struct Name {
  const char* directory;
  const char* base;
  const char* path;
};

class ArchiveName : public testing::TestWithParam<Name> {};

TEST_P(ArchiveName, StaysUnderTheTarget) {
  const Support::RpmSandbox sandbox;
  const auto header = Common::Rpm::ownHeader(headerNew());
  const std::uint32_t zero = 0;
  headerPutString(header.get(), RPMTAG_DIRNAMES, GetParam().directory);
  headerPutString(header.get(), RPMTAG_BASENAMES, GetParam().base);
  headerPutUint32(header.get(), RPMTAG_DIRINDEXES, &zero, 1);
  headerPutString(header.get(), RPMTAG_FILEUSERNAME, "root");
  headerPutString(header.get(), RPMTAG_FILEGROUPNAME, "root");
  const ArchiveReader archive = ArchiveReader::openFileList(Common::Rpm::Reader(header.get()));
  Events paths;
  archive.forEachFile("/some/target", [&](const ArchiveEntry& entry) { paths.push_back(entry.path.string()); });
  EXPECT_THAT(paths, ElementsAre(GetParam().path));
}

INSTANTIATE_TEST_SUITE_P(
    Table, ArchiveName,
    testing::Values(Name{"/opt/", "file", "/some/target/opt/file"}, Name{"/", "", "/some/target"}, //
                    Name{"/", ".", "/some/target"},                                                //
                    Name{"/", "..", "/some/target"}, Name{"/../../../", "file", "/some/target/file"},
                    Name{"/opt/../../../etc/", "passwd", "/some/target/etc/passwd"},
                    Name{"/opt/", "../../../etc/passwd", "/some/target/etc/passwd"},
                    Name{"//etc//", "passwd", "/some/target/etc/passwd"},
                    Name{"/opt/", "/etc/passwd", "/some/target/opt/etc/passwd"}, Name{"", "file", "/some/target/file"},
                    Name{"../", "file", "/some/target/file"}, Name{"/opt/./a/../", "b/", "/some/target/opt/b"},
                    Name{"/a b/", "\xc3\xa4\n\"", "/some/target/a b/\xc3\xa4\n\""}));

} // namespace
