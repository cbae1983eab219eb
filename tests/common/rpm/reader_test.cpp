// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"
#include "common/posix/file_descriptor.h"
#include "common/rpm/reader.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/own_process.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/files/special_files.h"
#include "tests/support/packages/open_pgp_key.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/working_directory.h"

#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

#include <array>
#include <cerrno>
#include <functional>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using Common::Rpm::Reader;
using Support::errorOf;
using Support::PackageInput;
using Support::payloadOffset;
using Support::readFile;
using Support::writeFile;

class RpmReader : public testing::Test {
protected:
  RpmReader() { m_sandbox.build(PackageInput(), package()); }

  std::filesystem::path package() const { return m_sandbox.path() / "sample.rpm"; }

  static void expectUnreadable(const std::filesystem::path& path) {
    EXPECT_EQ(errorOf([&] { const Reader reader(path.string()); }), "BadPackageFileFormat: Couldn't read rpm package");
  }

  static void expectNotFound(const std::filesystem::path& path) {
    EXPECT_EQ(errorOf([&] { const Reader reader(path.string()); }), "FileNotFound: Couldn't open rpm package");
  }

  Support::RpmSandbox m_sandbox;
};

/// Where the main header of the package begins: at the second magic.
off_t mainHeaderOf(const std::string& bytes) {
  const std::string magic("\x8e\xad\xe8\x01\0\0\0\0", 8);
  return static_cast<off_t>(bytes.find(magic, bytes.find(magic) + 1));
}

TEST_F(RpmReader, ReadsAHeaderWithoutVerifyingIt) {
  std::string bytes = readFile(package());
  const off_t offset = mainHeaderOf(bytes);
  for (std::size_t at = bytes.find("sample", static_cast<std::size_t>(offset)); at != std::string::npos;
       at = bytes.find("sample", at))
    bytes.replace(at, 6, "forged");
  writeFile(package(), bytes);
  expectUnreadable(package());
  const Common::Posix::FileDescriptor file(open(package().c_str(), O_RDONLY | O_CLOEXEC));
  const Reader reader = Reader::unverified(file.get(), offset);
  EXPECT_EQ(reader.tag(Common::Rpm::Tag::Name), "forged");
  EXPECT_EQ(reader.tag(Common::Rpm::Tag::FullVersion), "1.0-1");
}

TEST_F(RpmReader, ReadsNoHeaderThatIsNotInTheFile) {
  const std::string good = readFile(package());
  const off_t offset = mainHeaderOf(good);
  const auto begin = static_cast<std::size_t>(offset);
  std::string huge = good;
  huge.replace(begin + 12, 4, "\x0f\xff\xff\xff"); // the size of the data
  for (const std::string& bytes :
       {huge, good.substr(0, begin), good.substr(0, begin + 100), good.substr(0, begin) + "x"}) {
    writeFile(package(), bytes);
    const Common::Posix::FileDescriptor file(open(package().c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(errorOf([&] { Reader::unverified(file.get(), offset); }),
              "BadPackageFileFormat: Couldn't read rpm package");
  }
  EXPECT_EQ(errorOf([&] { Reader::unverified(-1, 0); }), "BadPackageFileFormat: Couldn't read rpm package");
}

TEST_F(RpmReader, ReadsNameVersionAndRelease) {
  m_sandbox.build({.name = "krv-app", .version = "1.2.3", .release = "4.el9", .preamble = "Epoch: 7"}, package());
  const Reader reader(package().string());
  EXPECT_EQ(reader.tag(Common::Rpm::Tag::Name), "krv-app");
  EXPECT_EQ(reader.tag(Common::Rpm::Tag::Version), "1.2.3");
  EXPECT_EQ(reader.tag(Common::Rpm::Tag::Release), "4.el9");
}

TEST_F(RpmReader, FollowsASymlink) {
  std::filesystem::create_symlink("sample.rpm", m_sandbox.path() / "link.rpm");
  EXPECT_EQ(Reader((m_sandbox.path() / "link.rpm").string()).tag(RPMTAG_NAME), "sample");
}

TEST_F(RpmReader, ResolvesExtensionTags) {
  EXPECT_EQ(Reader(package().string()).tag(RPMTAG_NEVRA), "sample-1.0-1.noarch");
}

TEST_F(RpmReader, GivesTheFirstStringOfAList) {
  EXPECT_EQ(Reader(package().string()).tag(RPMTAG_BASENAMES), "sample");
}

TEST_F(RpmReader, RefusesANumericTag) {
  const Reader reader(package().string());
  EXPECT_EQ(errorOf([&] { reader.tag(RPMTAG_BUILDTIME); }),
            "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=1006)");
}

TEST_F(RpmReader, RefusesABinaryTag) {
  const Reader reader(package().string());
  EXPECT_EQ(errorOf([&] { reader.tag(RPMTAG_SIGMD5); }),
            "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=261)");
}

TEST_F(RpmReader, NamesAnAbsentTagByItsSignedNumber) {
  const Reader reader(package().string());
  EXPECT_EQ(errorOf([&] { reader.tag(RPMTAG_VENDOR); }),
            "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=1011)");
  EXPECT_EQ(errorOf([&] { reader.tag(-5); }), "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=-5)");
}

TEST_F(RpmReader, ReturnsTheFallbackForATagThatCannotBeRead) {
  const Reader reader(package().string());
  EXPECT_EQ(reader.tagOr(RPMTAG_VENDOR, "nobody"), "nobody");
  EXPECT_EQ(reader.tagOr(RPMTAG_BUILDTIME, "never"), "never");
  EXPECT_EQ(reader.tagOr(RPMTAG_NAME, "other"), "sample");
}

TEST_F(RpmReader, FallsBackToGzipForAnUncompressedPayload) {
  m_sandbox.build({.globals = "%global _binary_payload w.ufdio"}, package());
  EXPECT_EQ(Reader(package().string()).tagOr(RPMTAG_PAYLOADCOMPRESSOR, "gzip"), "gzip");
}

/// Without an immutable region librpm compares the provides with the package while it reads the header.
TEST_F(RpmReader, RefusesProvidesOfOtherTypesWithoutARegion) {
  const std::uint32_t number = 8;
  const auto isRefused = [&](rpmTagVal tag, rpmTagType type, const void* value) {
    m_sandbox.build({}, package());
    const auto replace = [&](Header header) {
      headerDel(header, tag);
      Support::putValue(header, tag, type, value);
    };
    Support::changeHeader(package(), replace, Support::Region::None);
    expectUnreadable(package());
  };
  isRefused(RPMTAG_PROVIDENAME, RPM_INT32_TYPE, &number);
  isRefused(RPMTAG_PROVIDENAME, RPM_BIN_TYPE, "x");
  isRefused(RPMTAG_PROVIDENAME, RPM_STRING_TYPE, "sample");
  isRefused(RPMTAG_PROVIDEFLAGS, RPM_INT8_TYPE, &number);
}

TEST_F(RpmReader, TakesAHeaderWithoutARegion) {
  const auto nothing = [](Header) {};
  Support::changeHeader(package(), nothing, Support::Region::None);
  EXPECT_EQ(Reader(package().string()).tag(RPMTAG_NEVRA), "sample-1.0-1.noarch");
}

/// Without versions librpm compares nothing.
TEST_F(RpmReader, TakesProvidesOfOtherTypesWithoutARegionAndVersions) {
  const auto numbers = [](Header header) {
    const std::uint32_t number = 8;
    headerDel(header, RPMTAG_PROVIDEVERSION);
    headerDel(header, RPMTAG_PROVIDENAME);
    Support::putValue(header, RPMTAG_PROVIDENAME, RPM_INT32_TYPE, &number);
  };
  Support::changeHeader(package(), numbers, Support::Region::None);
  EXPECT_EQ(Reader(package().string()).tag(RPMTAG_NAME), "sample");
}

TEST_F(RpmReader, SharesTheHeaderWithItsCopies) {
  auto reader = std::make_unique<Reader>(package().string());
  const Reader copy = *reader;
  const Common::Rpm::HeaderHandle header = reader->header();
  reader.reset();
  EXPECT_EQ(copy.tag(RPMTAG_NAME), "sample");
  EXPECT_EQ(header, copy.header());
}

TEST_F(RpmReader, DoesNotOwnAHeaderFromTheDatabase) {
  const Common::Rpm::HeaderHandle header = Reader(package().string()).header();
  { EXPECT_EQ(Reader(header.get()).tag(RPMTAG_NAME), "sample"); }
  EXPECT_EQ(Reader(header.get()).tag(RPMTAG_VERSION), "1.0");
}

TEST_F(RpmReader, DoesNotFindAMissingFile) {
  expectNotFound(m_sandbox.path() / "missing.rpm");
  expectNotFound("");
}

TEST_F(RpmReader, DoesNotFindAFileWhoseStatFails) {
  std::filesystem::create_symlink("loop.rpm", m_sandbox.path() / "loop.rpm");
  std::filesystem::create_symlink("nowhere.rpm", m_sandbox.path() / "dangling.rpm");
  expectNotFound(m_sandbox.path() / "loop.rpm");
  expectNotFound(m_sandbox.path() / "dangling.rpm");
  expectNotFound(m_sandbox.path() / std::string(300, 'n'));
  expectNotFound(package() / "below-a-file.rpm");
}

TEST_F(RpmReader, DoesNotFindAnUnreadableFile) {
  const Support::OrdinaryUser user(m_sandbox.path());
  std::filesystem::permissions(package(), std::filesystem::perms::none);
  expectNotFound(package());
}

TEST_F(RpmReader, RefusesOtherTypesOfFilesWithoutOpeningThem) {
  const std::filesystem::path fifo = m_sandbox.path() / "fifo.rpm";
  Support::makeFifo(fifo);
  expectUnreadable(fifo);
  expectUnreadable(m_sandbox.path());
  expectUnreadable("/dev/null");
  std::filesystem::create_symlink("fifo.rpm", m_sandbox.path() / "link-to-fifo.rpm");
  expectUnreadable(m_sandbox.path() / "link-to-fifo.rpm");
}

TEST_F(RpmReader, RefusesAFileThatIsNotAPackage) {
  writeFile(m_sandbox.path() / "text.rpm", "This is a text.\n");
  writeFile(m_sandbox.path() / "empty.rpm", "");
  writeFile(m_sandbox.path() / "zeros.rpm", std::string(10000, '\0'));
  expectUnreadable(m_sandbox.path() / "text.rpm");
  expectUnreadable(m_sandbox.path() / "empty.rpm");
  expectUnreadable(m_sandbox.path() / "zeros.rpm");
}

TEST_F(RpmReader, ReportsAMissingRelease) {
  Support::hideTag(package(), RPMTAG_RELEASE);
  const Reader reader(package().string());
  EXPECT_EQ(reader.tag(RPMTAG_VERSION), "1.0");
  EXPECT_EQ(errorOf([&] { reader.tag(RPMTAG_RELEASE); }),
            "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=1002)");
}

TEST_F(RpmReader, RefusesAPackageCutAnywhereBeforeItsPayload) {
  const std::string whole = readFile(package());
  const std::size_t payload = payloadOffset(whole);
  const std::filesystem::path cut = m_sandbox.path() / "cut.rpm";
  ASSERT_GT(payload, 1000U);
  for (std::size_t size = 0; size < payload; size += 64) {
    SCOPED_TRACE(size);
    writeFile(cut, std::string_view(whole).substr(0, size));
    expectUnreadable(cut);
  }
}

TEST_F(RpmReader, RefusesHeaderSizesLargerThanTheFile) {
  const std::string whole = readFile(package());
  const std::size_t main = Support::mainHeaderOffset(whole);
  for (const std::size_t header : {std::size_t{96}, main}) {
    for (const std::size_t number : {header + 8, header + 12}) {
      for (const char* value : {"\x0f\xff\xff\xff", "\x03\xff\xff\xff", "\x7f\xff\xff\xff", "\xff\xff\xff\xff"}) {
        SCOPED_TRACE(number);
        writeFile(package(), std::string(whole).replace(number, 4, value));
        expectUnreadable(package());
      }
    }
  }
}

// As large as the header of a package with 400,000 files.
TEST_F(RpmReader, ReadsAMainHeaderOf64Megabytes) {
  const std::string label(64 * 1024 * 1024, 'x');
  Support::changeHeader(package(), [&](Header header) {
    headerDel(header, RPMTAG_MODULARITYLABEL);
    headerPutString(header, RPMTAG_MODULARITYLABEL, label.c_str());
  });
  EXPECT_TRUE(Reader(package().string()).tag(RPMTAG_MODULARITYLABEL) == label);
}

// The bus disconnects clients that send too much.
TEST_F(RpmReader, ReadsANameOfOneMebibyte) {
  const auto namePackage = [&](std::size_t size) {
    Support::changeHeader(package(), [&](Header header) {
      headerDel(header, RPMTAG_NAME);
      headerPutString(header, RPMTAG_NAME, std::string(size, 'n').c_str());
    });
  };
  constexpr std::size_t limit = 1024 * 1024;
  namePackage(limit);
  EXPECT_EQ(Reader(package().string()).tag(RPMTAG_NAME).size(), limit);
  namePackage(limit + 1);
  const Reader reader(package().string());
  EXPECT_EQ(errorOf([&] { reader.tag(RPMTAG_NAME); }),
            "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=1000)");
  EXPECT_EQ(reader.tag(RPMTAG_VERSION), "1.0");
}

TEST_F(RpmReader, ReadsAVersionOfTwoMebibytes) {
  const std::string version(2 * 1024 * 1024, '1');
  Support::changeHeader(package(), [&](Header header) {
    headerDel(header, RPMTAG_VERSION);
    headerPutString(header, RPMTAG_VERSION, version.c_str());
  });
  EXPECT_TRUE(Reader(package().string()).tag(RPMTAG_VERSION) == version);
}

/// A header that claims the largest size that librpm allows, in a sparse file of that size.
void claimLargestHeader(const std::filesystem::path& package) {
  std::string bytes = readFile(package);
  const std::size_t main = Support::mainHeaderOffset(bytes);
  bytes.replace(main + 12, 4, std::string_view("\x0f\xf0\0\0", 4));
  writeFile(package, bytes);
  std::filesystem::resize_file(package, main + 0x0ff80000);
}

// librpm ends the process with status 1 if it gets no memory.
TEST_F(RpmReader, RefusesHeadersThatExceedTheMemory) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer takes more address space than any limit allows";
#endif
  claimLargestHeader(package());
  const auto readWithLittleMemory = [&] {
    const rlimit limit = {.rlim_cur = 200UL * 1024 * 1024, .rlim_max = 200UL * 1024 * 1024};
    setrlimit(RLIMIT_AS, &limit);
    const std::string error = errorOf([&] { const Reader reader(package().string()); });
    _exit(error == "BadPackageFileFormat: Couldn't read rpm package" ? 42 : 43);
  };
  EXPECT_EXIT(readWithLittleMemory(), testing::ExitedWithCode(42), "");
}

/// Name, version and release.
class RpmReaderIdentity : public RpmReader, public testing::WithParamInterface<rpmTagVal> {
protected:
  void expectNoText() const {
    const Reader reader(package().string());
    EXPECT_EQ(errorOf([&] { reader.tag(static_cast<std::int32_t>(GetParam())); }),
              "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=" + std::to_string(GetParam()) + ")");
    EXPECT_TRUE(reader.texts(static_cast<std::int32_t>(GetParam())).empty());
  }

  void replace(const std::function<void(Header)>& put) const {
    Support::changeHeader(package(), [&](Header header) {
      headerDel(header, GetParam());
      put(header);
    });
  }
};

TEST_P(RpmReaderIdentity, DoesNotDependOnTheLanguage) {
  replace([](Header header) {
    headerAddI18NString(header, GetParam(), "everywhere", "C");
    headerAddI18NString(header, GetParam(), "germany", "de");
  });
  for (const char* language : {"C", "de"}) {
    const Support::ScopedEnvironment environment("LANGUAGE", language);
    expectNoText();
  }
}

TEST_P(RpmReaderIdentity, RefusesAList) {
  for (const rpm_count_t count : {1U, 2U}) {
    replace([&](Header header) {
      const std::array<const char*, 2> texts = {"one", "two"};
      Support::putValue(header, GetParam(), RPM_STRING_ARRAY_TYPE, texts.data(), count);
    });
    expectNoText();
  }
}

INSTANTIATE_TEST_SUITE_P(Table, RpmReaderIdentity, testing::Values(RPMTAG_NAME, RPMTAG_VERSION, RPMTAG_RELEASE),
                         [](const auto& instance) { return rpmTagGetName(instance.param); });

// stat(2) reports /proc/kmsg as a regular file without a size, and reading blocks until the kernel's next message.
TEST_F(RpmReader, RefusesProcKmsg) {
  std::filesystem::create_symlink("/proc/kmsg", m_sandbox.path() / "link.rpm");
  expectUnreadable(m_sandbox.path() / "link.rpm");
}

TEST_F(RpmReader, DoesNotOpenAFileWithoutASize) {
  const std::filesystem::path empty = m_sandbox.path() / "empty.rpm";
  writeFile(empty, "");
  const Common::Posix::FileDescriptor openings(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(inotify_add_watch(openings.get(), empty.c_str(), IN_OPEN), 0);
  expectUnreadable(empty);
  std::array<char, 4096> event;
  EXPECT_EQ(read(openings.get(), event.data(), event.size()), -1) << "it was opened";
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(RpmReader, TreatsAPathThatLooksLikeAUrlAsAPath) {
  const Support::ScopedWorkingDirectory here(m_sandbox.path());
  for (const char* path :
       {"http://h/x.rpm", "https://h/x.rpm", "ftp://h/x.rpm", "hkp://h/x.rpm", "file://h/x.rpm", "-"}) {
    SCOPED_TRACE(path);
    const std::filesystem::path copy = m_sandbox.path() / path;
    std::filesystem::create_directories(copy.parent_path());
    std::filesystem::copy_file(package(), copy);
    EXPECT_EQ(Reader(path).tag(RPMTAG_NAME), "sample");
  }
}

TEST_F(RpmReader, DoesNotLeakItsDescriptorToOtherPrograms) {
  const Reader reader(package().string());
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry, gone) != package())
      continue;
    ++found;
    EXPECT_EQ(fcntl(std::stoi(entry.path().filename().string()), F_GETFD), FD_CLOEXEC);
  }
  EXPECT_EQ(found, 1);
}

TEST_F(RpmReader, ReadsAPackageCutInsideItsPayload) {
  const std::string whole = readFile(package());
  const std::filesystem::path cut = m_sandbox.path() / "cut.rpm";
  writeFile(cut, std::string_view(whole).substr(0, payloadOffset(whole)));
  EXPECT_EQ(Reader(cut.string()).tag(RPMTAG_NAME), "sample");
}

TEST_F(RpmReader, RefusesAMainHeaderWithAFlippedByte) {
  const std::string whole = readFile(package());
  const std::filesystem::path damaged = m_sandbox.path() / "damaged.rpm";
  const std::size_t payload = payloadOffset(whole);
  for (std::size_t offset = payload - 600; offset < payload; offset += 37) {
    SCOPED_TRACE(offset);
    std::string bytes = whole;
    bytes[offset] = static_cast<char>(~bytes[offset]);
    writeFile(damaged, bytes);
    expectUnreadable(damaged);
  }
}

TEST_F(RpmReader, ReadsAPackageSignedByAnImportedKey) {
  if (Support::ranInItsOwnProcess())
    return;
  const Support::OpenPgpKey key(m_sandbox);
  key.sign(package());
  key.import();
  EXPECT_EQ(Reader(package().string()).tag(RPMTAG_NAME), "sample");
}

TEST_F(RpmReader, RefusesAPackageSignedByAnUnknownKeyLikeADamagedOne) {
  const Support::OpenPgpKey key(m_sandbox);
  key.sign(package());
  expectUnreadable(package());
}

// Loading the keyring takes many times longer than reading a package. The test needs no clock: a key that is imported
// after the first read stays unknown.
TEST_F(RpmReader, LoadsTheKeyringOnce) {
  m_sandbox.build({.name = "signed"}, m_sandbox.path() / "signed.rpm");
  const Support::OpenPgpKey key(m_sandbox);
  key.sign(m_sandbox.path() / "signed.rpm");
  EXPECT_EQ(Reader(package().string()).tag(RPMTAG_NAME), "sample");
  key.import();
  expectUnreadable(m_sandbox.path() / "signed.rpm");
}

TEST_F(RpmReader, ClosesTheFileWithItsLastCopy) {
  const auto isOpen = [&] {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(entry, gone) == package())
        return true;
    }
    return false;
  };
  {
    const Reader reader(package().string());
    EXPECT_TRUE(isOpen());
  }
  EXPECT_FALSE(isOpen());
}

TEST_F(RpmReader, LogsNothing) {
  const Support::CapturedLog log;
  EXPECT_EQ(Reader(package().string()).tagOr(RPMTAG_VENDOR, "x"), "x");
  EXPECT_THROW(Reader(m_sandbox.path().string()), Common::Error);
  writeFile(m_sandbox.path() / "text.rpm", "This is a text.\n");
  EXPECT_THROW(Reader((m_sandbox.path() / "text.rpm").string()), Common::Error);
  EXPECT_EQ(log.text(), "");
}

} // namespace
