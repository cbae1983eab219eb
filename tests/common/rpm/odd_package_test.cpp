// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
//
// Packages with values that do not fit each other, all of which librpm's own tools take.
#include "acceptance/file_list.h"
#include "common/rpm/transaction.h"
#include "tests/common/rpm/archive_fixture.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/packages/rpm_version.h"
#include "tests/support/process/process.h"

#include <gmock/gmock.h>
#include <rpm/rpmtag.h>

namespace {

using Common::Rpm::Reader;
using Common::Rpm::RpmTransaction;
using Support::changeHeader;
using Support::errorOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

struct Oddity {
  std::string name;
  std::function<void(Header)> change; ///< changes the header that rpmbuild made
  std::size_t excess = 0;             ///< is added to the size in the signature header
  std::string secondCondition = "two";

  friend void PrintTo(const Oddity& oddity, std::ostream* stream) { *stream << oddity.name; }
};

void replaceText(Header header, rpmTagVal tag, const std::vector<const char*>& texts) {
  headerDel(header, tag);
  Support::putValue(header, tag, RPM_STRING_ARRAY_TYPE, texts.data(), static_cast<rpm_count_t>(texts.size()));
}

const std::vector<Oddity> oddities = {
    {"None", [](Header) {}},
    {"SeveralLicenses",
     [](Header header) {
       replaceText(header, RPMTAG_LICENSE, {"MIT", "BSD"});
     }},
    {"SeveralVendors",
     [](Header header) {
       replaceText(header, RPMTAG_VENDOR, {"one", "two"});
     }},
    {"TriggerScriptsAlone",
     [](Header header) {
       for (const rpmTagVal tag : {RPMTAG_TRIGGERNAME, RPMTAG_TRIGGERVERSION, RPMTAG_TRIGGERFLAGS, RPMTAG_TRIGGERINDEX,
                                   RPMTAG_TRIGGERSCRIPTPROG})
         headerDel(header, tag);
     }},
    {"FewerLanguagesThanFiles",
     [](Header header) {
       replaceText(header, RPMTAG_FILELANGS, {"de", "fr"});
     }},
    {"FewerImaSignaturesThanFiles",
     [](Header header) {
       replaceText(header, RPMTAG_FILESIGNATURES, {"0302", "0302"});
     }},
    {"MoreVersionsThanProvides",
     [](Header header) {
       replaceText(header, RPMTAG_PROVIDEVERSION, {"1", "2", "3", "4", "5"});
     }},
    {"SizeOneTooLarge", [](Header) {}, 1},
    {"TwoScriptsForOneCondition", [](Header) {}, 0, "one"},
};

class OddPackage : public ArchiveTest::Fixture, public testing::WithParamInterface<Oddity> {
protected:
  void SetUp() override {
    if (GetParam().secondCondition == "one" && Support::librpmIsAtLeast("4.20"))
      GTEST_SKIP() << "rpmbuild refuses such a package from version 4.20 on";
    Support::PackageInput input = ArchiveTest::mixedPackage;
    input.preamble = "AutoReqProv: no\nRequires: other\nProvides: first = 1, second";
    build(input);
    m_sound = extracted();
    input.sections = "%triggerin -- one\ntrue\n%triggerin -- " + GetParam().secondCondition + "\nfalse\n";
    build(input);
    changeHeader(package(), GetParam().change);
    Support::sealHeader(package(), GetParam().excess);
  }

  ArchiveTest::Events m_sound;
};

TEST_P(OddPackage, IsAcceptedByTheToolsOfRpm) {
  Support::runOrThrow({"rpm", "-qp", package().string()});
  Support::runOrThrow({"rpm", "-K", "--nosignature", package().string()});
  Support::runOrThrow({"rpm", "-i", "--test", "--nodeps", package().string()});
  Support::runOrThrow({"rpm2archive", package().string()});
}

TEST_P(OddPackage, HasItsTags) {
  const Reader reader(package().string());
  EXPECT_EQ(reader.tag(RPMTAG_NAME), "sample");
  EXPECT_EQ(reader.tag(RPMTAG_NEVRA), "sample-1.0-1.noarch");
  EXPECT_EQ(reader.tag(RPMTAG_ARCH), "noarch");
  EXPECT_EQ(reader.tag(RPMTAG_SUMMARY), "A test package");
  EXPECT_EQ(reader.tag(RPMTAG_LICENSE), "MIT");
  EXPECT_THAT(reader.texts(RPMTAG_TRIGGERSCRIPTS), ElementsAre("true", "false"));
  EXPECT_THAT(reader.texts(RPMTAG_FILENAMES), Contains("/opt/sample/second"));
}

TEST_P(OddPackage, HasItsDependencies) {
  EXPECT_THAT(RpmTransaction::dependencyNames(Reader(package().string()), RPMTAG_REQUIRENAME), Contains("other"));
}

TEST_P(OddPackage, HasItsFiles) {
  EXPECT_EQ(Acceptance::fileList(Reader(package().string())).size(), 8U);
  EXPECT_EQ(extracted(), m_sound);
}

INSTANTIATE_TEST_SUITE_P(Table, OddPackage, testing::ValuesIn(oddities),
                         [](const auto& instance) { return instance.param.name; });

class TriggerPackage : public ArchiveTest::Fixture {
protected:
  void buildWith(const std::string& triggers) { build({.sections = triggers}); }
};

// rpmbuild only warns. The second script has no condition; for its type librpm would return, and free, uninitialised
// memory.
TEST_F(TriggerPackage, WithTwoScriptsForOneConditionHasOnlyConditions) {
  if (Support::librpmIsAtLeast("4.20"))
    GTEST_SKIP() << "rpmbuild refuses such a package from version 4.20 on";
  buildWith("%triggerin -- one\ntrue\n%triggerin -- one\nfalse");
  const Reader reader(package().string());
  EXPECT_EQ(reader.tag(RPMTAG_TRIGGERCONDS), "one");
  EXPECT_THAT(reader.texts(RPMTAG_TRIGGERCONDS), ElementsAre("one", ""));
  EXPECT_EQ(errorOf([&] { reader.tag(RPMTAG_TRIGGERTYPE); }),
            "BadPackageFileFormat: Couldn't retrieve rpm tag from package (type=5006)");
  EXPECT_THAT(reader.texts(RPMTAG_TRIGGERTYPE), IsEmpty());
}

TEST_F(TriggerPackage, WithValidTriggersHasConditionsAndTypes) {
  buildWith("%triggerin -- one, two < 3\ntrue\n%triggerun -- four\nfalse\n%filetriggerin -- /opt\ntrue");
  const Reader reader(package().string());
  EXPECT_THAT(reader.texts(RPMTAG_TRIGGERCONDS), ElementsAre("one, two < 3", "four"));
  EXPECT_THAT(reader.texts(RPMTAG_TRIGGERTYPE), ElementsAre("in", "un"));
  EXPECT_THAT(reader.texts(RPMTAG_FILETRIGGERCONDS), ElementsAre("/opt"));
  EXPECT_THAT(reader.texts(RPMTAG_FILETRIGGERTYPE), ElementsAre("in"));
}

TEST_F(TriggerPackage, WithoutConditionsHasNeitherConditionsNorTypes) {
  buildWith("%triggerin -- one\ntrue");
  changeHeader(package(), [](Header header) {
    for (const rpmTagVal tag : {RPMTAG_TRIGGERNAME, RPMTAG_TRIGGERVERSION, RPMTAG_TRIGGERFLAGS, RPMTAG_TRIGGERINDEX})
      headerDel(header, tag);
  });
  const Reader reader(package().string());
  EXPECT_THAT(reader.texts(RPMTAG_TRIGGERCONDS), IsEmpty());
  EXPECT_THAT(reader.texts(RPMTAG_TRIGGERTYPE), IsEmpty());
}

} // namespace
