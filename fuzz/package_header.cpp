// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"
#include "common/rpm/archive.h"
#include "common/rpm/reader.h"
#include "common/rpm/transaction.h"
#include "common/rpm/version.h"
#include "fuzz/mutator.h"
#include "fuzz/rpm_process.h"
#include "fuzz/support.h"
#include "tests/support/packages/ignored_leaks.h"

#include <rpm/rpmtag.h>

#include <array>
#include <functional>

namespace {

using Common::Rpm::ArchiveEntry;
using Common::Rpm::ArchiveReader;
using Common::Rpm::Reader;
using Common::Rpm::RpmTransaction;

/// Runs `action`. An exception of our own type is a valid result: it returns false.
bool succeeds(const std::function<void()>& action) {
  try {
    action();
    return true;
  } catch (const Common::Error&) {
    return false;
  }
}

/// The tags that the tool reads, and some that librpm computes from other tags.
void readTags(const Reader& reader, std::string_view input) {
  namespace Tag = Common::Rpm::Tag;
  for (const std::int32_t tag : {Tag::Name, Tag::Version, Tag::Release, Tag::PayloadCompressor})
    reader.tagOr(tag, "");
  constexpr std::array computed = {
      RPMTAG_SUMMARY,     RPMTAG_NEVRA,       RPMTAG_FILENAMES,       RPMTAG_INSTFILENAMES,   RPMTAG_ORIGFILENAMES,
      RPMTAG_FILECLASS,   RPMTAG_FILEPROVIDE, RPMTAG_REQUIRENEVRS,    RPMTAG_PROVIDENEVRS,    RPMTAG_TRIGGERCONDS,
      RPMTAG_TRIGGERTYPE, RPMTAG_FILENLINKS,  RPMTAG_FILETRIGGERTYPE, RPMTAG_FILETRIGGERCONDS};
  const std::size_t chosen = std::hash<std::string_view>()(input);
  reader.tagOr(computed[chosen % computed.size()], "");
  // And any other tag, to cover unexpected numbers.
  reader.tagOr(static_cast<std::int32_t>(1000 + chosen / 16 % 200), "");
  reader.tagOr(static_cast<std::int32_t>(5000 + chosen / 4096 % 120), "");
}

void compareWithItself(const Reader& reader) {
  const std::string version =
      reader.tagOr(Common::Rpm::Tag::Version, "") + "-" + reader.tagOr(Common::Rpm::Tag::Release, "");
  using Common::Rpm::VersionComparison;
  Fuzz::require(Common::Rpm::compareVersions(version, version) == VersionComparison::LowerOrEqual,
                "no version is newer than itself");
  const auto forth = Common::Rpm::compareVersions(version, "1.0-1");
  const auto back = Common::Rpm::compareVersions("1.0-1", version);
  Fuzz::require(forth != VersionComparison::Newer || back == VersionComparison::LowerOrEqual,
                "two versions are not both newer than the other");
}

void walkFiles(const Reader& reader) {
  ArchiveReader::openFileList(reader).forEachFile("/target", [](const ArchiveEntry& entry) {
    Fuzz::require(entry.path == entry.path.lexically_normal() && *++entry.path.begin() == "target",
                  "the path of a file is under the target");
  });
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximum,
                                               unsigned int seed) {
  return Fuzz::mutateInput(data, size, maximum, seed, Fuzz::mutatePackage);
}

/// Runs all queries on the header of a package file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Support::IgnoredLeaks ofLibrpm;
  Fuzz::prepareRpm();
  const std::string_view input = Fuzz::begin(data, size);
  static const Fuzz::MemoryFile file;
  file.assign(input);
  succeeds([&] {
    const Reader reader(file.path());
    Fuzz::accept();
    readTags(reader, input);
    compareWithItself(reader);
    succeeds([&] { walkFiles(reader); });
    for (const std::int32_t tag : {RPMTAG_REQUIRENAME, RPMTAG_PROVIDENAME, RPMTAG_CONFLICTNAME, RPMTAG_OBSOLETENAME,
                                   RPMTAG_TRIGGERNAME, RPMTAG_RECOMMENDNAME})
      RpmTransaction::dependencyNames(reader, tag);
  });
  return 0;
}
