// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/archive.h"
#include "common/rpm/handles.h"
#include "tests/common/rpm/archive_fixture.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace {

using ArchiveTest::Compressor;
using ArchiveTest::entriesOf;
using ArchiveTest::Events;
using ArchiveTest::joined;
using ArchiveTest::mixedPackage;
using ArchiveTest::payloadOf;
using ArchiveTest::recording;
using Common::Rpm::ArchiveEntry;
using Common::Rpm::ArchiveReader;
using Common::Rpm::HardLinkDescription;
using Support::changeHeader;
using Support::errorOf;
using Support::readFile;
using Support::replacePayload;
using Support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* openError = "BadPackageFileFormat: Couldn't open rpm package for extraction";
constexpr const char* contentError = "Internal: Couldn't read content from rpm package";
const Compressor uncompressed = {"none", "w.ufdio"};

class ArchiveDamage : public ArchiveTest::Fixture {
protected:
  /// Whether extraction fails or has the same events as the undamaged package.
  bool failsOrGives(const Events& sound) const {
    const std::string error = errorOf([&] { EXPECT_EQ(extracted(), sound); });
    EXPECT_TRUE(error == contentError || error == "no error") << error;
    return error == contentError;
  }

  void nameCompressor(const std::string& name) const {
    changeHeader(package(), [&](Header header) {
      headerDel(header, RPMTAG_PAYLOADCOMPRESSOR);
      headerPutString(header, RPMTAG_PAYLOADCOMPRESSOR, name.c_str());
    });
  }

  void expectUnopenable() const {
    EXPECT_EQ(errorOf([&] { open(); }), openError);
  }

  /// Sets the size of one file in the header.
  void claim(std::size_t index, std::uint64_t size) const {
    changeHeader(package(), [&](Header header) {
      const auto data = Common::Rpm::ownTagData(rpmtdNew());
      headerGet(header, RPMTAG_LONGFILESIZES, data.get(), HEADERGET_EXT);
      std::vector<std::uint64_t> sizes;
      while (rpmtdNext(data.get()) >= 0)
        sizes.push_back(rpmtdGetNumber(data.get()));
      sizes.at(index) = size;
      headerDel(header, RPMTAG_FILESIZES);
      headerDel(header, RPMTAG_LONGFILESIZES);
      headerPutUint64(header, RPMTAG_LONGFILESIZES, sizes.data(), static_cast<rpm_count_t>(sizes.size()));
    });
  }

  /// Expects writing and reading the only file to fail.
  void expectBadContent() const {
    const std::filesystem::path destination = m_sandbox.path() / "made";
    const auto extractWith = [&](const std::function<void(ArchiveReader&)>& use) {
      ArchiveReader archive = open();
      archive.extract("/target", {.directory = {},
                                  .regularFile =
                                      [&](const ArchiveEntry&) {
                                        use(archive);
                                        return std::any();
                                      },
                                  .symbolicLink = {},
                                  .hardLinks = {}});
    };
    EXPECT_EQ(errorOf([&] { extractWith([&](ArchiveReader& archive) { archive.writeContent(destination); }); }),
              contentError);
    EXPECT_EQ(errorOf([&] { extractWith([&](ArchiveReader& archive) { archive.readContent(); }); }), contentError);
  }
};

class DamagedPayload : public ArchiveDamage, public testing::WithParamInterface<Compressor> {};

TEST_P(DamagedPayload, IsDetectedWhereverThePackageIsCut) {
  build(mixedPackage, GetParam());
  const std::string whole = readFile(package());
  for (std::size_t size = Support::payloadOffset(whole); size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    writeFile(package(), std::string_view(whole).substr(0, size));
    expectDamaged();
  }
}

// Without the size in the signature header, only the last bytes of a compressed stream (an index or a checksum) may be
// missing unnoticed, because all content has been read by then.
TEST_P(DamagedPayload, IsDetectedWithoutTheSizeInTheSignatureHeader) {
  build(mixedPackage, GetParam());
  const Events sound = extracted();
  const std::string payload = payloadOf(package());
  std::size_t silent = 0;
  for (std::size_t size = 0; size < payload.size(); ++size) {
    SCOPED_TRACE(size);
    replacePayload(package(), std::string_view(payload).substr(0, size));
    if (!failsOrGives(sound))
      ++silent;
  }
  EXPECT_LT(silent, 64U);
}

TEST_P(DamagedPayload, NeverGivesOtherContent) {
  build(mixedPackage, GetParam());
  const Events sound = extracted();
  const std::string payload = payloadOf(package());
  std::size_t noticed = 0;
  for (std::size_t place = 0; place < payload.size(); ++place) {
    for (const int flipped : {0x01, 0x80, 0xff}) {
      SCOPED_TRACE(place);
      std::string damaged = payload;
      damaged[place] = static_cast<char>(damaged[place] ^ flipped);
      replacePayload(package(), damaged);
      if (failsOrGives(sound))
        ++noticed;
    }
  }
  EXPECT_GT(noticed, payload.size() / 10);
}

INSTANTIATE_TEST_SUITE_P(Table, DamagedPayload, testing::ValuesIn(ArchiveTest::compressors),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(ArchiveDamage, IsDetectedWhenAnEntryIsMissing) {
  build(mixedPackage, uncompressed);
  const std::vector<std::string> entries = entriesOf(payloadOf(package()));
  ASSERT_EQ(entries.size(), 9U);
  for (std::size_t missing = 0; missing < entries.size(); ++missing) {
    SCOPED_TRACE(missing);
    std::vector<std::string> rest = entries;
    rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(missing));
    replacePayload(package(), joined(rest));
    expectDamaged();
  }
}

// librpm skips all entries between the members of a hard-link group, because it looks for the last member first.
TEST_F(ArchiveDamage, IsDetectedWhenHardLinksAreOutOfOrder) {
  build(mixedPackage, uncompressed);
  std::vector<std::string> entries = entriesOf(payloadOf(package()));
  std::rotate(entries.begin(), entries.end() - 2, entries.end() - 1);
  replacePayload(package(), joined(entries));
  expectDamaged();
}

TEST_F(ArchiveDamage, IsDetectedWhenAnEntryIsNotInTheHeader) {
  build(mixedPackage, uncompressed);
  std::string payload = payloadOf(package());
  payload.replace(payload.find("./opt/sample/second"), 19, "./opt/sample/SECOND");
  replacePayload(package(), payload);
  expectDamaged();
}

TEST_F(ArchiveDamage, IsDetectedWhenThePayloadIsMissing) {
  build({.install = "", .files = ""});
  EXPECT_THAT(extracted(), IsEmpty());
  replacePayload(package(), "");
  expectDamaged();
}

TEST_F(ArchiveDamage, KeepsTheEntriesExtractedBefore) {
  build(mixedPackage, uncompressed);
  const std::string payload = payloadOf(package());
  replacePayload(package(), std::string_view(payload).substr(0, payload.find("./opt/sample/link")));
  ArchiveReader archive = open();
  Events events;
  EXPECT_EQ(errorOf([&] { archive.extract("/target", recording(archive, events)); }), contentError);
  EXPECT_THAT(events,
              ElementsAre("0 directory /target/opt/sample 755 ima", //
                          "1 file /target/opt/sample/empty 644 ima: ", "2 directory /target/opt/sample/folder 750 ima",
                          "3 file /target/opt/sample/folder/first 644 ima: first\n"));
}

TEST_F(ArchiveDamage, CallsNoHardLinkHandlerAfterAFailure) {
  build(mixedPackage, uncompressed);
  const std::string payload = payloadOf(package());
  replacePayload(package(), std::string_view(payload).substr(0, payload.size() - 100));
  ArchiveReader archive = open();
  Events events;
  EXPECT_EQ(errorOf([&] { archive.extract("/target", recording(archive, events)); }), contentError);
  EXPECT_EQ(events.back(), "5 file /target/opt/sample/one 644 ima: shared\n");
}

TEST_F(ArchiveDamage, IsDetectedWhenContentDoesNotMatchItsDigest) {
  build({.files = "/opt/sample/file"}, uncompressed);
  std::string payload = payloadOf(package());
  payload.replace(payload.find("content\n"), 7, "CONTENT");
  replacePayload(package(), payload);
  expectBadContent();
  EXPECT_EQ(readFile(m_sandbox.path() / "made"), "CONTENT\n");
}

TEST_F(ArchiveDamage, IsDetectedByAnMd5Digest) {
  build({.files = "/opt/sample/file", .globals = "%global _binary_filedigest_algorithm 1\n"}, uncompressed);
  EXPECT_THAT(extracted(), ElementsAre("0 file /target/opt/sample/file 644 ima: content\n"));
  std::string payload = payloadOf(package());
  payload.replace(payload.find("content\n"), 7, "CONTENT");
  replacePayload(package(), payload);
  expectBadContent();
}

TEST_F(ArchiveDamage, IsDetectedByEachByteOfADigest) {
  build({.files = "/opt/sample/file"}, uncompressed);
  for (const std::size_t position : {0U, 31U, 63U}) {
    const auto flip = [&](Header header) {
      const Common::Rpm::TagDataHandle value = Common::Rpm::ownTagData(rpmtdNew());
      headerGet(header, RPMTAG_FILEDIGESTS, value.get(), HEADERGET_ALLOC);
      std::string digest = rpmtdGetString(value.get());
      digest.at(position) = digest.at(position) == '0' ? '1' : '0';
      headerDel(header, RPMTAG_FILEDIGESTS);
      headerPutString(header, RPMTAG_FILEDIGESTS, digest.c_str());
    };
    const std::string sound = readFile(package());
    changeHeader(package(), flip);
    expectBadContent();
    writeFile(package(), sound);
  }
}

TEST_F(ArchiveDamage, IsNotDetectedWithoutDigests) {
  build({.files = "/opt/sample/file"}, uncompressed);
  Support::hideTag(package(), RPMTAG_FILEDIGESTS);
  EXPECT_THAT(extracted(), ElementsAre("0 file /target/opt/sample/file 644 ima: content\n"));
}

// Old packages have zeros as the digest of an empty file.
TEST_F(ArchiveDamage, IsNotCheckedForAnEmptyFile) {
  build({.install = "mkdir -p %{buildroot}/opt; : > %{buildroot}/opt/file", .files = "/opt/file"});
  changeHeader(package(), [](Header header) {
    headerDel(header, RPMTAG_FILEDIGESTS);
    headerPutString(header, RPMTAG_FILEDIGESTS, std::string(64, '0').c_str());
  });
  EXPECT_THAT(extracted(), ElementsAre("0 file /target/opt/file 644 ima: "));
}

TEST_F(ArchiveDamage, IsDetectedAtTheFirstEntryForAnUnknownCompressor) {
  for (const std::string& name : {std::string("unknown"), std::string(""), std::string(5000, 'x'), std::string("w9")}) {
    SCOPED_TRACE(name);
    build(mixedPackage, {"xz", "w6.xzdio"});
    nameCompressor(name);
    ArchiveReader archive = open();
    Events events;
    EXPECT_EQ(errorOf([&] { archive.extract("/target", recording(archive, events)); }), contentError);
    EXPECT_THAT(events, IsEmpty());
  }
}

// A payload is decompressed only once, by the compressor that the header names.
TEST_F(ArchiveDamage, IsDetectedForACompressionThatTheHeaderDoesNotName) {
  build(mixedPackage, {"gzip", "w9.gzdio"});
  nameCompressor("unknown");
  expectDamaged();
  nameCompressor("gzip");
  const std::string payload = payloadOf(package());
  replacePayload(package(), payload);
  EXPECT_FALSE(extracted().empty());
  writeFile(m_sandbox.path() / "payload", payload);
  Support::runOrThrow({"gzip", m_sandbox.path() / "payload"});
  replacePayload(package(), readFile(m_sandbox.path() / "payload.gz"));
  expectDamaged();
}

TEST_F(ArchiveDamage, DoesNotAllocateALargeClaimedSize) {
  for (const std::uint64_t size : {std::uint64_t{9}, std::uint64_t{1} << 32, std::uint64_t{1} << 62}) {
    SCOPED_TRACE(size);
    build({.files = "/opt/sample/file"}, uncompressed);
    claim(0, size);
    expectBadContent();
  }
}

TEST_F(ArchiveDamage, IsDetectedWhenAFileIsLongerThanItsSize) {
  build({.files = "/opt/sample/file"}, uncompressed);
  claim(0, 7);
  expectBadContent();
}

// With such a size librpm would write past its buffers.
TEST_F(ArchiveDamage, RefusesToOpenWithANegativeSize) {
  for (const std::uint64_t size : {~std::uint64_t{0}, std::uint64_t{1} << 63}) {
    SCOPED_TRACE(size);
    build({.files = "/opt/sample/file"}, uncompressed);
    claim(0, size);
    expectUnopenable();
  }
}

// librpm would allocate this size, or abort the process.
TEST_F(ArchiveDamage, RefusesToOpenWithASymlinkLongerThanAPath) {
  for (const std::uint64_t size : {std::uint64_t{4097}, std::uint64_t{1} << 62, ~std::uint64_t{0}}) {
    SCOPED_TRACE(size);
    build(mixedPackage, uncompressed);
    claim(4, size);
    expectUnopenable();
  }
}

TEST_F(ArchiveDamage, IsDetectedWhenASymlinkIsShorterThanItsSize) {
  build(mixedPackage, uncompressed);
  claim(4, 4096);
  expectDamaged();
}

TEST_F(ArchiveDamage, RefusesToOpenWithABrokenFileList) {
  build(mixedPackage);
  Support::hideTag(package(), RPMTAG_DIRINDEXES);
  expectUnopenable();
  EXPECT_EQ(errorOf([&] { ArchiveReader::openFileList(package().string()); }), openError);
}

TEST_F(ArchiveDamage, AcceptsAMissingSymlinkTarget) {
  build(mixedPackage);
  Support::hideTag(package(), RPMTAG_FILELINKTOS);
  EXPECT_THAT(extracted(), testing::Contains("4 link /target/opt/sample/link 777 ima"));
}

} // namespace
