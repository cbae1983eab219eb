// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/archive.h"
#include "common/rpm/file_list.h"
#include "common/rpm/sound_header.h"
#include "common/rpm/transaction.h"
#include "tests/common/rpm/archive_fixture.h"
#include "tests/support/package_surgery.h"
#include "tests/support/thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Common::Rpm::ArchiveReader;
using Common::Rpm::isSound;
using Common::Rpm::Reader;
using Common::Rpm::RpmTransaction;
using Support::errorOf;
using testing::IsEmpty;

/// Puts a value of any type there, which librpm's own functions for the types refuse.
void putValue(Header header, rpmTagVal tag, rpmTagType type, const void* value, rpm_count_t count = 1) {
  const auto data = Common::Rpm::ownTagData(rpmtdNew());
  data->tag = tag;
  data->type = type;
  data->count = count;
  data->data = const_cast<void*>(value); // headerPut() copies
  ASSERT_EQ(headerPut(header, data.get(), HEADERPUT_DEFAULT), 1);
}

class SoundHeader : public testing::Test {
protected:
  SoundHeader() : m_header(Common::Rpm::ownHeader(headerNew())) {}

  void put(rpmTagVal tag, rpmTagType type, const void* value, rpm_count_t count = 1) const {
    putValue(m_header.get(), tag, type, value, count);
  }

  void putText(rpmTagVal tag, const char* text = "text") const { headerPutString(m_header.get(), tag, text); }
  void putNumber(rpmTagVal tag, std::uint32_t number = 0) const { headerPutUint32(m_header.get(), tag, &number, 1); }

  /// One condition for each of `scripts` scripts.
  void putTriggers(std::uint32_t scripts) const {
    for (std::uint32_t script = 0; script < scripts; ++script) {
      putText(RPMTAG_TRIGGERSCRIPTS);
      putText(RPMTAG_TRIGGERNAME);
      putText(RPMTAG_TRIGGERVERSION);
      putNumber(RPMTAG_TRIGGERFLAGS);
      putNumber(RPMTAG_TRIGGERINDEX, script);
    }
  }

  const Common::Rpm::HeaderHandle m_header;
};

TEST_F(SoundHeader, MayBeEmpty) {
  EXPECT_TRUE(isSound(m_header));
}

TEST_F(SoundHeader, HasValuesOfTheirTypes) {
  putText(RPMTAG_NAME);
  putNumber(RPMTAG_EPOCH);
  putText(RPMTAG_CLASSDICT);
  EXPECT_TRUE(isSound(m_header));
}

TEST_F(SoundHeader, HasNoNumberWhereATextBelongs) {
  const std::uint32_t number = 7;
  put(RPMTAG_NAME, RPM_INT32_TYPE, &number);
  EXPECT_FALSE(isSound(m_header));
}

TEST_F(SoundHeader, HasNoSmallerNumberThanBelongsThere) {
  const std::uint8_t number = 7;
  put(RPMTAG_FILEFLAGS, RPM_INT8_TYPE, &number);
  EXPECT_FALSE(isSound(m_header));
}

TEST_F(SoundHeader, HasNoSingleTextWhereAListOfThemBelongs) {
  put(RPMTAG_CLASSDICT, RPM_STRING_TYPE, "text");
  EXPECT_FALSE(isSound(m_header));
}

TEST_F(SoundHeader, MayHaveOneInterpreterAsASingleText) {
  put(RPMTAG_POSTINPROG, RPM_STRING_TYPE, "/bin/sh");
  EXPECT_TRUE(isSound(m_header));
}

TEST_F(SoundHeader, MayHaveUntranslatedTexts) {
  put(RPMTAG_SUMMARY, RPM_STRING_TYPE, "text");
  EXPECT_TRUE(isSound(m_header));
}

TEST_F(SoundHeader, MayHaveAnythingUnderAnUnknownTag) {
  put(0x7ffffff0, RPM_BIN_TYPE, "text", 4);
  EXPECT_TRUE(isSound(m_header));
}

TEST_F(SoundHeader, HasAsManyFlagsAsDependencies) {
  putText(RPMTAG_REQUIRENAME);
  EXPECT_TRUE(isSound(m_header));
  putNumber(RPMTAG_REQUIREFLAGS);
  EXPECT_TRUE(isSound(m_header));
  putNumber(RPMTAG_REQUIREFLAGS);
  EXPECT_FALSE(isSound(m_header));
}

TEST_F(SoundHeader, HasAsManyValuesAsFiles) {
  putText(RPMTAG_BASENAMES);
  putText(RPMTAG_FILELANGS);
  EXPECT_TRUE(isSound(m_header));
  putText(RPMTAG_FILELANGS);
  EXPECT_FALSE(isSound(m_header));
}

TEST_F(SoundHeader, HasAConditionForEachTrigger) {
  putTriggers(2);
  EXPECT_TRUE(isSound(m_header));
  putText(RPMTAG_TRIGGERSCRIPTS);
  EXPECT_FALSE(isSound(m_header));
}

// librpm gives each script the conditions that name its place, and drops those that name none.
TEST_F(SoundHeader, MayHaveAConditionOfAScriptThatIsNotThere) {
  putTriggers(1);
  putText(RPMTAG_TRIGGERNAME);
  putText(RPMTAG_TRIGGERVERSION);
  putNumber(RPMTAG_TRIGGERFLAGS);
  putNumber(RPMTAG_TRIGGERINDEX, 1);
  EXPECT_TRUE(isSound(m_header));
}

TEST_F(SoundHeader, HasAScriptForEachTrigger) {
  putText(RPMTAG_TRIGGERNAME);
  EXPECT_FALSE(isSound(m_header));
}

/// What is refused of a package whose header is not sound, and what is not.
class UnsoundPackage : public ArchiveTest::Fixture {
protected:
  UnsoundPackage() {
    build({.preamble = "AutoReqProv: no\nRequires: other"});
    const Reader before(package().string());
    EXPECT_THAT(RpmTransaction::dependencyNames(before, RPMTAG_REQUIRENAME), testing::Contains("other"));
    EXPECT_EQ(before.tag(RPMTAG_NEVRA), "sample-1.0-1.noarch");
    // librpm refuses a number for a text by itself, but not a single text for a list.
    Support::changeHeader(package(), [](Header header) {
      headerDel(header, RPMTAG_CLASSDICT);
      putValue(header, RPMTAG_CLASSDICT, RPM_STRING_TYPE, "text");
    });
  }
};

TEST_F(UnsoundPackage, HasItsOwnPlainTagsAllTheSame) {
  const Reader reader(package().string());
  EXPECT_EQ(reader.tag(RPMTAG_NAME), "sample");
  EXPECT_EQ(reader.tag(RPMTAG_VERSION), "1.0");
  EXPECT_EQ(reader.tag(RPMTAG_RELEASE), "1");
}

TEST_F(UnsoundPackage, HasNoComputedTags) {
  const Reader reader(package().string());
  EXPECT_EQ(errorOf([&] { reader.tag(RPMTAG_NEVRA); }),
            "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=5016)");
  EXPECT_THAT(reader.texts(RPMTAG_NEVRA), IsEmpty());
}

TEST_F(UnsoundPackage, HasNoListOfFiles) {
  const std::string error = "BadPackageFileFormat: Couldn't open rpm package for extraction";
  EXPECT_EQ(errorOf([&] { ArchiveReader::openFileList(package().string()); }), error);
  EXPECT_EQ(errorOf([&] { open(); }), error);
  EXPECT_EQ(errorOf([&] { Common::Rpm::fileList(Reader(package().string())); }),
            "BadPackageFileFormat: Couldn't read the list of files of the package");
}

TEST_F(UnsoundPackage, HasNoDependencies) {
  EXPECT_THAT(RpmTransaction::dependencyNames(Reader(package().string()), RPMTAG_REQUIRENAME), IsEmpty());
}

TEST_F(UnsoundPackage, IsNoneThatRpmbuildMakes) {
  const Support::PackageInput input = {
      .preamble = "Epoch: 1\nRequires: other >= 2\nRecommends: more\nConflicts: foe\nObsoletes: old\nProvides: new = 1",
      .install = "mkdir -p %{buildroot}/opt/sample; echo x > %{buildroot}/opt/sample/file",
      .files = "/opt/sample\n%ghost /opt/absent",
      .sections = "%pre\ntrue\n%post -p <lua>\nprint(1)\n%preun\ntrue\n%triggerin -- a, b < 3\ntrue\n%triggerun -- c\n"
                  "true\n%filetriggerin -- /opt, /usr\ntrue\n%transfiletriggerin -- /opt\ntrue\n%verifyscript\ntrue\n"
                  "%changelog\n* Sat Jan 01 2000 Somebody <somebody@example.org> - 1.0-1\n- made"};
  build(input);
  EXPECT_TRUE(isSound(Reader(package().string()).header()));
}

} // namespace
