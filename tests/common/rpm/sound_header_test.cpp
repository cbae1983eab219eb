// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/file_list.h"
#include "common/rpm/archive.h"
#include "common/rpm/handles.h"
#include "common/rpm/sound_header.h"
#include "common/rpm/transaction.h"
#include "tests/common/rpm/archive_fixture.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/packages/ignored_leaks.h"
#include "tests/support/packages/package_surgery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <set>

namespace {

using Common::Rpm::ArchiveReader;
using Common::Rpm::Reader;
using Common::Rpm::RpmTransaction;
using Support::errorOf;
using Support::putValue;
using testing::IsEmpty;

std::set<std::int32_t> allTags() {
  const auto names = Common::Rpm::ownTagData(rpmtdNew());
  rpmTagGetNames(names.get(), 0);
  std::set<std::int32_t> tags;
  while (const char* name = rpmtdNextString(names.get()))
    tags.insert(static_cast<std::int32_t>(rpmTagGetValue(name)));
  return tags;
}

class SoundHeader : public testing::Test {
protected:
  SoundHeader() : m_header(Common::Rpm::ownHeader(headerNew())) {}

  void putText(rpmTagVal tag, const char* text = "text") const { headerPutString(m_header.get(), tag, text); }
  void putNumber(rpmTagVal tag, std::uint32_t number = 0) const { headerPutUint32(m_header.get(), tag, &number, 1); }
  void putOneText(rpmTagVal tag) const { putValue(m_header.get(), tag, RPM_STRING_TYPE, "text"); }

  /// Adds a condition for one script.
  void putCondition(std::uint32_t script) const {
    putText(RPMTAG_TRIGGERNAME);
    putText(RPMTAG_TRIGGERVERSION);
    putNumber(RPMTAG_TRIGGERFLAGS);
    putNumber(RPMTAG_TRIGGERINDEX, script);
  }

  bool mayCompute(rpmTagVal tag) const {
    return Common::Rpm::SoundHeader(m_header).mayCompute(static_cast<std::int32_t>(tag));
  }
  bool hasFiles() const { return Common::Rpm::SoundHeader(m_header).hasFiles(); }
  bool hasDependencies(rpmTagVal tag) const {
    return Common::Rpm::SoundHeader(m_header).hasDependencies(static_cast<std::int32_t>(tag));
  }

  const Common::Rpm::HeaderHandle m_header;
};

TEST_F(SoundHeader, MayBeEmpty) {
  EXPECT_TRUE(hasFiles());
  EXPECT_TRUE(hasDependencies(RPMTAG_REQUIRENAME));
  for (const rpmTagVal tag :
       {RPMTAG_NEVRA, RPMTAG_FILENAMES, RPMTAG_FILECLASS, RPMTAG_TRIGGERCONDS, RPMTAG_TRIGGERTYPE})
    EXPECT_TRUE(mayCompute(tag));
}

TEST_F(SoundHeader, KnowsComputedTags) {
  using Common::Rpm::SoundHeader;
  EXPECT_TRUE(SoundHeader::isComputed(RPMTAG_NEVRA));
  EXPECT_TRUE(SoundHeader::isComputed(RPMTAG_FILECLASS));
  EXPECT_FALSE(SoundHeader::isComputed(RPMTAG_LICENSE));
  EXPECT_FALSE(SoundHeader::isComputed(RPMTAG_TRIGGERSCRIPTS));
  EXPECT_FALSE(mayCompute(RPMTAG_LICENSE));
}

// If librpm returns a tag that is not in the header, it computes the tag.
TEST_F(SoundHeader, KnowsEveryTagThatLibrpmComputes) {
  int computed = 0;
  for (const std::int32_t tag : allTags()) {
    const auto value = Common::Rpm::ownTagData(rpmtdNew());
    if (headerGet(m_header.get(), static_cast<rpm_tag_t>(tag), value.get(), HEADERGET_EXT) == 0)
      continue;
    ++computed;
    EXPECT_TRUE(Common::Rpm::SoundHeader::isComputed(tag)) << tag;
  }
  EXPECT_GT(computed, 5);
}

TEST_F(SoundHeader, RefusesAnUnknownKindOfDependencies) {
  EXPECT_FALSE(hasDependencies(RPMTAG_NAME));
}

TEST_F(SoundHeader, NeedsListsOfFileNames) {
  putText(RPMTAG_BASENAMES);
  putText(RPMTAG_DIRNAMES, "/");
  putNumber(RPMTAG_DIRINDEXES);
  EXPECT_TRUE(hasFiles());
  headerDel(m_header.get(), RPMTAG_BASENAMES);
  putOneText(RPMTAG_BASENAMES);
  EXPECT_FALSE(hasFiles());
  EXPECT_FALSE(mayCompute(RPMTAG_FILENAMES));
  EXPECT_FALSE(mayCompute(RPMTAG_FILENLINKS));
  EXPECT_TRUE(mayCompute(RPMTAG_ORIGFILENAMES));
}

TEST_F(SoundHeader, NeedsListsOfOriginalFileNames) {
  putOneText(RPMTAG_ORIGBASENAMES);
  EXPECT_FALSE(hasFiles());
  EXPECT_FALSE(mayCompute(RPMTAG_ORIGFILENAMES));
  EXPECT_TRUE(mayCompute(RPMTAG_FILENAMES));
}

TEST_F(SoundHeader, RefusesNumbersOfASmallerType) {
  const std::uint8_t number = 0;
  putValue(m_header.get(), RPMTAG_DIRINDEXES, RPM_INT8_TYPE, &number);
  EXPECT_FALSE(mayCompute(RPMTAG_FILENAMES));
  EXPECT_FALSE(hasFiles());
}

TEST_F(SoundHeader, RefusesASingleTextInPlaceOfAList) {
  putOneText(RPMTAG_CLASSDICT);
  EXPECT_FALSE(hasFiles());
  EXPECT_FALSE(mayCompute(RPMTAG_FILECLASS));
}

TEST_F(SoundHeader, RefusesNumbersInPlaceOfDigests) {
  const std::uint32_t number = 0;
  putValue(m_header.get(), RPMTAG_FILEDIGESTS, RPM_INT32_TYPE, &number);
  EXPECT_FALSE(hasFiles());
}

// librpm would allocate 300 MiB for these two, and abort the process if that fails.
TEST_F(SoundHeader, RefusesVeritySignaturesThatTakeTooMuchMemory) {
  const std::string longest(150 * 1024 * 1024, 'A');
  putText(RPMTAG_VERITYSIGNATURES, longest.c_str());
  EXPECT_TRUE(hasFiles());
  putText(RPMTAG_VERITYSIGNATURES, "");
  EXPECT_FALSE(hasFiles());
}

TEST_F(SoundHeader, NeedsAListOfDependenciesForEachFile) {
  putText(RPMTAG_BASENAMES);
  putText(RPMTAG_BASENAMES);
  putNumber(RPMTAG_FILEDEPENDSX);
  putNumber(RPMTAG_FILEDEPENDSN);
  EXPECT_FALSE(mayCompute(RPMTAG_FILEREQUIRE));
  EXPECT_FALSE(mayCompute(RPMTAG_FILEPROVIDE));
  putNumber(RPMTAG_FILEDEPENDSX);
  putNumber(RPMTAG_FILEDEPENDSN);
  EXPECT_TRUE(mayCompute(RPMTAG_FILEREQUIRE));
  EXPECT_TRUE(mayCompute(RPMTAG_FILEPROVIDE));
}

TEST_F(SoundHeader, NeedsAListOfDependencyNames) {
  putOneText(RPMTAG_REQUIRENAME);
  EXPECT_FALSE(hasDependencies(RPMTAG_REQUIRENAME));
  EXPECT_FALSE(mayCompute(RPMTAG_REQUIRENEVRS));
  EXPECT_TRUE(hasDependencies(RPMTAG_PROVIDENAME));
  EXPECT_TRUE(mayCompute(RPMTAG_PROVIDENEVRS));
}

TEST_F(SoundHeader, NeedsDependencyFlagsOfFourBytes) {
  const std::uint8_t number = 0;
  putText(RPMTAG_REQUIRENAME);
  EXPECT_TRUE(hasDependencies(RPMTAG_REQUIRENAME));
  putValue(m_header.get(), RPMTAG_REQUIREFLAGS, RPM_INT8_TYPE, &number);
  EXPECT_FALSE(hasDependencies(RPMTAG_REQUIRENAME));
}

TEST_F(SoundHeader, RefusesATranslatedVersion) {
  headerAddI18NString(m_header.get(), RPMTAG_VERSION, "1.0", "C");
  for (const rpmTagVal tag : {RPMTAG_EVR, RPMTAG_NVR, RPMTAG_NEVR, RPMTAG_NVRA, RPMTAG_NEVRA})
    EXPECT_FALSE(mayCompute(tag));
}

TEST_F(SoundHeader, NeedsAConditionForEachTypeOfATrigger) {
  putText(RPMTAG_TRIGGERSCRIPTS);
  putCondition(0);
  EXPECT_TRUE(mayCompute(RPMTAG_TRIGGERTYPE));
  putText(RPMTAG_TRIGGERSCRIPTS);
  EXPECT_TRUE(mayCompute(RPMTAG_TRIGGERCONDS));
  EXPECT_FALSE(mayCompute(RPMTAG_TRIGGERTYPE));
  putCondition(1);
  EXPECT_TRUE(mayCompute(RPMTAG_TRIGGERTYPE));
}

// librpm assigns conditions to scripts by number and ignores numbers without a script.
TEST_F(SoundHeader, AcceptsAConditionOfAMissingScript) {
  constexpr std::uint32_t scripts = 64; // their marks fill a machine word: AddressSanitizer sees the one behind them
  for (std::uint32_t script = 0; script < scripts; ++script) {
    putText(RPMTAG_TRIGGERSCRIPTS);
    putCondition(script);
  }
  for (const std::uint32_t missing : {scripts, scripts + 7, 0xffffffffU})
    putCondition(missing);
  EXPECT_TRUE(mayCompute(RPMTAG_TRIGGERCONDS));
  EXPECT_TRUE(mayCompute(RPMTAG_TRIGGERTYPE));
}

TEST_F(SoundHeader, NeedsAScriptNumberForEachCondition) {
  putText(RPMTAG_TRIGGERSCRIPTS);
  putText(RPMTAG_TRIGGERNAME);
  EXPECT_FALSE(mayCompute(RPMTAG_TRIGGERCONDS));
  putNumber(RPMTAG_TRIGGERINDEX);
  EXPECT_TRUE(mayCompute(RPMTAG_TRIGGERCONDS));
  EXPECT_FALSE(mayCompute(RPMTAG_TRIGGERTYPE)); // the flags are missing
}

/// Every type of value under every tag that librpm combines with others. A crash or a sanitizer report fails the test.
class OddValue : public SoundHeader {
protected:
  OddValue() {
    // Two values of each tag, which fit together.
    for (const char* name : {"one", "two"}) {
      for (const rpmTagVal tag : lists)
        putText(tag, name);
      putNumber(RPMTAG_DIRINDEXES, 1);
      putNumber(RPMTAG_ORIGDIRINDEXES, 0);
      for (const rpmTagVal tag : numbers)
        putNumber(tag, tag == RPMTAG_FILEDEPENDSN ? 1 : 0);
      for (const rpmTagVal tag : {RPMTAG_FILEMODES, RPMTAG_FILERDEVS}) {
        const std::uint16_t mode = 0120644;
        headerPutUint16(m_header.get(), tag, &mode, 1);
      }
      const char state = RPMFILE_STATE_NORMAL;
      headerPutChar(m_header.get(), RPMTAG_FILESTATES, &state, 1);
    }
    putNumber(RPMTAG_TRIGGERINDEX, 1);
  }

  static void askForEverything(const Common::Rpm::HeaderHandle& header) {
    const Support::IgnoredLeaks ofLibrpm;
    const Reader reader(header);
    static const std::set<std::int32_t> known = allTags();
    for (const std::int32_t tag : known) {
      reader.tagOr(tag, "");
      reader.texts(tag);
      RpmTransaction::dependencyNames(reader, tag);
    }
    errorOf([&] { Acceptance::fileList(reader); });
    errorOf(
        [&] { ArchiveReader::openFileList(reader).forEachFile("/target", [](const Common::Rpm::ArchiveEntry&) {}); });
  }

  static constexpr auto lists = std::to_array<rpmTagVal>(
      {RPMTAG_BASENAMES,      RPMTAG_DIRNAMES,        RPMTAG_ORIGBASENAMES,      RPMTAG_ORIGDIRNAMES,
       RPMTAG_FILELINKTOS,    RPMTAG_FILEUSERNAME,    RPMTAG_FILEGROUPNAME,      RPMTAG_FILELANGS,
       RPMTAG_FILECAPS,       RPMTAG_FILEDIGESTS,     RPMTAG_FILESIGNATURES,     RPMTAG_VERITYSIGNATURES,
       RPMTAG_CLASSDICT,      RPMTAG_REQUIRENAME,     RPMTAG_REQUIREVERSION,     RPMTAG_PROVIDENAME,
       RPMTAG_PROVIDEVERSION, RPMTAG_OLDSUGGESTSNAME, RPMTAG_OLDSUGGESTSVERSION, RPMTAG_TRIGGERNAME,
       RPMTAG_TRIGGERVERSION, RPMTAG_TRIGGERSCRIPTS});
  static constexpr auto numbers = std::to_array<rpmTagVal>(
      {RPMTAG_FILESIZES, RPMTAG_FILEFLAGS, RPMTAG_FILEVERIFYFLAGS, RPMTAG_FILEMTIMES, RPMTAG_FILEDEVICES,
       RPMTAG_FILEINODES, RPMTAG_FILECOLORS, RPMTAG_FILECLASS, RPMTAG_DEPENDSDICT, RPMTAG_FILEDEPENDSX,
       RPMTAG_FILEDEPENDSN, RPMTAG_REQUIREFLAGS, RPMTAG_PROVIDEFLAGS, RPMTAG_OLDSUGGESTSFLAGS, RPMTAG_TRIGGERFLAGS,
       RPMTAG_TRIGGERINDEX});
  static constexpr auto others = std::to_array<rpmTagVal>(
      {RPMTAG_DIRINDEXES, RPMTAG_ORIGDIRINDEXES, RPMTAG_FILEMODES, RPMTAG_FILERDEVS, RPMTAG_FILESTATES, RPMTAG_NAME,
       RPMTAG_VERSION, RPMTAG_RELEASE, RPMTAG_EPOCH, RPMTAG_ARCH, RPMTAG_SUMMARY, RPMTAG_FILEDIGESTALGO,
       RPMTAG_LONGFILESIZES, RPMTAG_OLDFILENAMES});
};

TEST_F(OddValue, DoesNotOccurInTheFixture) {
  EXPECT_TRUE(hasFiles());
  const Reader reader(m_header);
  EXPECT_EQ(Acceptance::fileList(reader).size(), 2U);
  for (const rpmTagVal tag : {RPMTAG_FILECLASS, RPMTAG_FILENAMES, RPMTAG_INSTFILENAMES, RPMTAG_ORIGFILENAMES,
                              RPMTAG_FILEREQUIRE, RPMTAG_REQUIRENEVRS, RPMTAG_SUGGESTNEVRS, RPMTAG_PROVIDENEVRS})
    EXPECT_EQ(reader.texts(static_cast<std::int32_t>(tag)).size(), 2U) << tag;
}

TEST_F(OddValue, DoesNotCrashLibrpmUnderAnyTag) {
  constexpr auto types = std::to_array<rpmTagType>(
      {RPM_CHAR_TYPE, RPM_INT8_TYPE, RPM_INT16_TYPE, RPM_INT32_TYPE, RPM_INT64_TYPE, RPM_BIN_TYPE});
  constexpr std::array<std::uint64_t, 3> bytes = {0x4141414141414141, ~0ULL, 1};
  constexpr std::array texts = {"/opt", "", "three"};
  std::vector<rpmTagVal> tags(lists.begin(), lists.end());
  tags.insert(tags.end(), numbers.begin(), numbers.end());
  tags.insert(tags.end(), others.begin(), others.end());
  for (const rpmTagVal tag : tags) {
    const auto askWith = [&](const std::function<void(Header)>& put) {
      const auto copy = Common::Rpm::ownHeader(headerCopy(m_header.get()));
      headerDel(copy.get(), tag);
      put(copy.get());
      askForEverything(copy);
    };
    askWith([](Header) {});
    askWith([&](Header header) { putValue(header, tag, RPM_STRING_TYPE, "text"); });
    askWith([&](Header header) { headerAddI18NString(header, tag, "text", "C"); });
    for (rpm_count_t count = 1; count <= texts.size(); ++count) {
      askWith([&](Header header) { putValue(header, tag, RPM_STRING_ARRAY_TYPE, texts.data(), count); });
      for (const rpmTagType type : types)
        askWith([&](Header header) { putValue(header, tag, type, bytes.data(), count); });
    }
  }
}

/// The queries that are refused, and those that are not, if a package has a single text where a list belongs.
class UnsoundPackage : public ArchiveTest::Fixture {
protected:
  UnsoundPackage() {
    build({.preamble = "AutoReqProv: no\nRequires: other"});
    putSingleText(RPMTAG_CLASSDICT);
  }

  /// librpm itself refuses a number in place of a text, but not a single text in place of a list.
  void putSingleText(rpmTagVal tag) {
    Support::changeHeader(package(), [tag](Header header) {
      headerDel(header, tag);
      putValue(header, tag, RPM_STRING_TYPE, "text");
    });
  }

  void expectNoListOfFiles() {
    const std::string error = "BadPackageFileFormat: Couldn't open rpm package for extraction";
    EXPECT_EQ(errorOf([&] { ArchiveReader::openFileList(package().string()); }), error);
    EXPECT_EQ(errorOf([&] { open(); }), error);
    EXPECT_EQ(errorOf([&] { Acceptance::fileList(Reader(package().string())); }),
              "BadPackageFileFormat: Couldn't read the list of files of the package");
  }
};

TEST_F(UnsoundPackage, HasTheTagsThatDoNotNeedTheList) {
  const Reader reader(package().string());
  EXPECT_EQ(reader.tag(RPMTAG_NAME), "sample");
  EXPECT_EQ(reader.tag(RPMTAG_VERSION), "1.0");
  EXPECT_EQ(reader.tag(RPMTAG_RELEASE), "1");
  EXPECT_EQ(reader.tag(RPMTAG_NEVRA), "sample-1.0-1.noarch");
  EXPECT_EQ(reader.tag(RPMTAG_FILENAMES), "/opt/sample");
  EXPECT_THAT(RpmTransaction::dependencyNames(reader, RPMTAG_REQUIRENAME), testing::Contains("other"));
}

TEST_F(UnsoundPackage, HasNoTagsComputedFromTheList) {
  const Reader reader(package().string());
  EXPECT_EQ(errorOf([&] { reader.tag(RPMTAG_FILECLASS); }),
            "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=1141)");
  EXPECT_THAT(reader.texts(RPMTAG_FILECLASS), IsEmpty());
}

TEST_F(UnsoundPackage, HasNoListOfFiles) {
  expectNoListOfFiles();
}

TEST_F(UnsoundPackage, HasNoListOfFilesWithASingleTextAsCapabilities) {
  build({.install = "mkdir -p %{buildroot}/opt; touch %{buildroot}/opt/file", .files = "%caps(cap_kill=p) /opt/file"});
  EXPECT_EQ(Acceptance::fileList(Reader(package().string())).at(0).capabilities, "cap_kill=p");
  putSingleText(RPMTAG_FILECAPS);
  expectNoListOfFiles();
}

TEST_F(UnsoundPackage, IsNeverMadeByRpmbuild) {
  const Support::PackageInput input = {
      .preamble = "Epoch: 1\nRequires: other >= 2\nRecommends: more\nConflicts: foe\nObsoletes: old\nProvides: new = 1",
      .install = "mkdir -p %{buildroot}/opt/sample; echo x > %{buildroot}/opt/sample/file",
      .files = "/opt/sample\n%ghost /opt/absent",
      .sections = "%pre\ntrue\n%post -p <lua>\nprint(1)\n%preun\ntrue\n%triggerin -- a, b < 3\ntrue\n%triggerun -- c\n"
                  "true\n%filetriggerin -- /opt, /usr\ntrue\n%transfiletriggerin -- /opt\ntrue\n%verifyscript\ntrue\n"
                  "%changelog\n* Sat Jan 01 2000 Somebody <somebody@example.org> - 1.0-1\n- made"};
  build(input);
  const Reader reader(package().string());
  EXPECT_EQ(Acceptance::fileList(reader).size(), 3U);
  for (const rpmTagVal tag :
       {RPMTAG_NEVRA, RPMTAG_FILENAMES, RPMTAG_FILECLASS, RPMTAG_FILEREQUIRE, RPMTAG_TRIGGERCONDS, RPMTAG_TRIGGERTYPE,
        RPMTAG_FILETRIGGERCONDS, RPMTAG_FILETRIGGERTYPE, RPMTAG_TRANSFILETRIGGERCONDS, RPMTAG_TRANSFILETRIGGERTYPE,
        RPMTAG_REQUIRENEVRS, RPMTAG_PROVIDENEVRS, RPMTAG_CONFLICTNEVRS, RPMTAG_OBSOLETENEVRS, RPMTAG_RECOMMENDNEVRS})
    EXPECT_THAT(reader.texts(static_cast<std::int32_t>(tag)), testing::Not(IsEmpty())) << tag;
}

} // namespace
