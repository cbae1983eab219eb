// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/differential_cases.h"
#include "tests/common/rpm/differential_comparison.h"
#include "tests/support/diagnostics/own_process.h"
#include "tests/support/packages/ignored_leaks.h"
#include "tests/support/packages/rpm_version.h"
#include "tests/support/process/scoped_mask.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <ostream>
#include <set>

#include <unistd.h>

namespace Differential {

void PrintTo(const Case& each, std::ostream* stream) {
  *stream << each.name;
}

} // namespace Differential

namespace {

using Differential::Case;

/// Queries whose result differs from librpm's for some packages, with the reason.
struct Exception {
  std::string reason;
  std::vector<std::string> questions;
  std::set<std::string> packages;
  const char* until = nullptr; ///< since this version librpm has the same result
};

const std::vector<Exception> exceptions = {
    {"rpm -i asks for a name, version, release, architecture and system that it can install, which unpacking does not.",
     {"installed tree"},
     {"ListForAText_Arch", "ListForAText_Name", "ListForAText_Os", "ListForAText_Release", "ListForAText_Version",
      "Missing_Arch", "Missing_Name", "Missing_Os", "Missing_Release", "Missing_Version"}},
    {"Name, version and release are single texts: each reader of a list could take another one.",
     {"tag Evr", "tag Nevr", "tag Nevra", "tag Nvr", "tag Nvra", "tag R", "tag Release"},
     {"ListForAText_Release", "TranslatedText_Release"}},
    {"Name, version and release are single texts: each reader of a list could take another one.",
     {"tag Evr", "tag Nevr", "tag Nevra", "tag Nvr", "tag Nvra", "tag V", "tag Version"},
     {"ListForAText_Version", "TranslatedText_Version"}},
    {"Name, version and release are single texts: each reader of a list could take another one.",
     {"tag N", "tag Name", "tag Nevr", "tag Nevra", "tag Nvr", "tag Nvra"},
     {"ListForAText_Name", "TranslatedText_Name"}},
    {"librpm refuses the list of files and goes on as if the package had none; here that is an error.",
     {"files", "package", "tree"},
     {"FolderOfANegativeNumber", "FolderThatIsNotThere", "Missing_Dirindexes",     "Missing_Dirnames",
      "Missing_Filegroupname",   "Missing_Fileusername", "TextForAList_Basenames", "TextForAList_Dirnames",
      "TooFew_Basenames",        "TooFew_Dirindexes",    "TooFew_Dirnames",        "TooFew_Fileflags",
      "TooFew_Filegroupname",    "TooFew_Fileinodes",    "TooFew_Filemodes",       "TooFew_Filemtimes",
      "TooFew_Filerdevs",        "TooFew_Filesizes",     "TooFew_Fileusername",    "TooMany_Basenames"}},
    {"librpm refuses the list of files and goes on as if the package had none; here that is an error.",
     {"package", "tree"},
     {"TooFew_Fileclass", "TooFew_Filecolors", "TooFew_Fileverifyflags"}},
    {"Queries and installation leave out some of the values that belong to a list of files; rpm2archive, which asks "
     "for all as is done here, refuses it.",
     {"files"},
     {"TooFew_Filecolors"}},
    {"Queries and installation leave out some of the values that belong to a list of files; rpm2archive, which asks "
     "for all as is done here, refuses it.",
     {"files", "installed tree"},
     {"TextForAList_Classdict", "TooFew_Fileclass", "TooFew_Fileverifyflags"}},
    {"librpm crashes.",
     {"installed tree", "tag Transfiletriggerconds"},
     {"Missing_Transfiletriggerindex", "TooFew_Transfiletriggerindex"}},
    {"librpm crashes.", {"package", "tree"}, {"TextForAList_Classdict"}},
    {"librpm crashes.", {"tag Filenames"}, {"TextForAList_Dirnames"}},
    {"librpm crashes.", {"tag Triggerconds"}, {"Missing_Triggerindex"}},
    {"librpm crashes.", {"tag Triggerconds"}, {"TooFew_Triggername", "TooMany_Triggerscripts"}, "4.20"},
    {"librpm crashes.", {"tag Triggertype"}, {"TooMany_Triggerscripts"}},
    {"librpm crashes.",
     {"tag Triggerconds", "tag Triggertype"},
     {"TooFew_Triggerindex", "TriggersWithTheSameCondition"}},
    {"librpm crashes.", {"tag Triggertype"}, {"Missing_Triggerflags", "TooFew_Triggerflags"}},
    {"librpm combines values that do not fit each other, and reads behind the end of a list or follows what is no "
     "pointer.",
     {"tag Fileprovide", "tag Filerequire"},
     {"TextForAList_Classdict"}},
    {"librpm combines values that do not fit each other, and reads behind the end of a list or follows what is no "
     "pointer.",
     {"tag Filerequire"},
     {"TextForAList_Requirename"}},
    {"librpm combines values that do not fit each other, and reads behind the end of a list or follows what is no "
     "pointer.",
     {"tag Triggerconds"},
     {"TooMany_Triggername"}},
    {"rpm -i wants a digest for each content; rpm2archive does not, and where there is none, there is nothing to "
     "compare with.",
     {"installed tree"},
     {"DigestAlgorithmOfAnotherLength", "DigestAlgorithmUnknown", "DigestsThatAreNone", "Missing_Filedigestalgo",
      "Missing_Filedigests", "TooFew_Filedigests", "TooMany_Filedigests"}},
    {"rpm -i does not look for a payload when the header lists no files; rpm2archive fails, too.",
     {"installed tree"},
     {"Missing_Basenames"}},
    {"The digest of the whole payload is not compared: that of each content is, and all else is taken from the header.",
     {"package"},
     {"FlippedFirstOfThePayload", "FlippedLastByte", "MoreBehindIt", "NameThatClimbs", "NameThatIsNoText",
      "NameWithDots"}},
    {"tar leaves out names that climb, and fails; here they stay under the target.", {"tree"}, {"NameThatClimbs"}},
    {"The compressed stream is damaged behind the end of the archive; librpm does not read so far.",
     {"installed tree", "package", "tree"},
     {"CompressionCut_bz", "CompressionCut_lz", "CompressionCut_xz", "CompressionWithMoreBehindIt_zs"}},
    {"rpm2archive does not compare contents with the digests in the header; rpm -i does.",
     {"package", "tree"},
     {"PayloadWithAnotherContent"}},
    {"rpm2archive does not compare contents with the digests in the header; rpm -i does.",
     {"tree"},
     {"FlippedContent"}},
    {"The handlers of the test replace nothing that they have made; tar does.",
     {"package", "tree"},
     {"PayloadWithAnEntryTwice"}},
    {"rpm -i adds to the names of new files until they are complete, and so has no room for the longest.",
     {"installed tree"},
     {"NameOf255"}},
    {"rpm -i gives one file the permissions of each of its names, in turn; here those of the name with the content "
     "hold.",
     {"installed tree"},
     {"HardLinksConfigured"}},
    {"A package is refused as long as its key is not imported; rpm -qp warns of it.",
     {"header", "package", "tree"},
     {"SignedWithAnUnknownKey"}},
};

std::map<std::string, std::string> reasonsFor(const std::string& package) {
  std::map<std::string, std::string> reasons;
  for (const Exception& exception : exceptions) {
    const bool isPast = exception.until != nullptr && Support::librpmIsAtLeast(exception.until);
    if (isPast || !exception.packages.contains(package))
      continue;
    for (const std::string& question : exception.questions)
      reasons[question] = exception.reason;
  }
  if (geteuid() != 0)
    reasons.erase(Differential::installedTree);
  return reasons;
}

class ComparedWithRpm : public testing::TestWithParam<Case> {
protected:
  const Support::ScopedMask m_mask{0022}; // rpm(8) sets it for directories that the package does not list
  const Support::RpmSandbox m_sandbox;
};

/// Only root can make a device, and read a file that nobody may read.
bool needsRoot(const std::string& name) {
  return name == "Device" || name == "File__attr_0000__root__root_";
}

TEST_P(ComparedWithRpm, GivesTheSameResult) {
  if (geteuid() != 0 && needsRoot(GetParam().name))
    GTEST_SKIP() << "needs root";
  // The reader keeps the keys that the database had at its first package.
  if (GetParam().name == "SignedWithAnImportedKey" && Support::ranInItsOwnProcess())
    return;
  const std::filesystem::path package = m_sandbox.path() / "sample.rpm";
  m_sandbox.build(GetParam().input, package);
  if (GetParam().change)
    GetParam().change(m_sandbox, package);
  const auto leaks = GetParam().change ? std::make_unique<Support::IgnoredLeaks>() : nullptr;
  const std::filesystem::path folder = m_sandbox.path() / "work";
  std::filesystem::create_directory(folder);
  std::map<std::string, std::string> reasons = reasonsFor(GetParam().name);
  for (const auto& [question, answers] : Differential::compare(package, folder)) {
    if (reasons.erase(question) == 0)
      ADD_FAILURE() << "another answer: " << question << "\nours:\n"
                    << answers.ours << "\nlibrpm's:\n"
                    << answers.theirs;
  }
  for (const auto& [question, reason] : reasons)
    ADD_FAILURE() << "the same answer now: " << question << ", in spite of: " << reason;
}

INSTANTIATE_TEST_SUITE_P(Built, ComparedWithRpm, testing::ValuesIn(Differential::builtPackages()),
                         [](const auto& instance) { return instance.param.name; });
INSTANTIATE_TEST_SUITE_P(Handmade, ComparedWithRpm, testing::ValuesIn(Differential::handmadePackages()),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
