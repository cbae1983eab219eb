// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/sound_header.h"

#include "common/rpm/handles.h"

#include <rpm/rpmtag.h>

#include <algorithm>
#include <array>
#include <vector>

namespace Common::Rpm {

namespace {

using Check = SoundHeader::Check;

/// The value as librpm reads it; for a translated text, one translation.
TagDataHandle valueOf(Header header, rpmTagVal tag) {
  TagDataHandle data = ownTagData(rpmtdNew());
  headerGet(header, tag, data.get(), HEADERGET_MINMEM);
  return data;
}

/// A missing value has the type RPM_NULL_TYPE.
bool isAbsentOr(rpmTagType type, Header header, rpmTagVal tag) {
  const TagDataHandle value = valueOf(header, tag);
  return rpmtdType(value.get()) == RPM_NULL_TYPE || rpmtdType(value.get()) == type;
}

bool isAbsentOrText(Header header, rpmTagVal tag) {
  return isAbsentOr(RPM_STRING_ARRAY_TYPE, header, tag) || isAbsentOr(RPM_STRING_TYPE, header, tag);
}

rpm_count_t countOf(Header header, rpmTagVal tag) {
  return rpmtdCount(valueOf(header, tag).get());
}

/// Empty if the value is absent or has another type.
std::vector<std::uint32_t> numbersOf(Header header, rpmTagVal tag) {
  const TagDataHandle value = valueOf(header, tag);
  std::vector<std::uint32_t> numbers;
  while (const std::uint32_t* number = rpmtdNextUint32(value.get()))
    numbers.push_back(*number);
  return numbers;
}

template <rpmTagVal base, rpmTagVal directory, rpmTagVal index>
bool hasNames(Header header) {
  return isAbsentOr(RPM_STRING_ARRAY_TYPE, header, base) && isAbsentOr(RPM_STRING_ARRAY_TYPE, header, directory) &&
         isAbsentOr(RPM_INT32_TYPE, header, index);
}

constexpr Check names = hasNames<RPMTAG_BASENAMES, RPMTAG_DIRNAMES, RPMTAG_DIRINDEXES>;
constexpr Check originalNames = hasNames<RPMTAG_ORIGBASENAMES, RPMTAG_ORIGDIRNAMES, RPMTAG_ORIGDIRINDEXES>;

/// librpm allocates the length of the longest fs-verity signature for each file, and aborts the process if that fails.
bool hasAffordableVeritySignatures(Header header) {
  constexpr std::uint64_t limit = 256 * 1024 * 1024; // librpm's limit for the data of a header
  const TagDataHandle signatures = valueOf(header, RPMTAG_VERITYSIGNATURES);
  std::size_t longest = 0;
  while (const char* text = rpmtdNextString(signatures.get()))
    longest = std::max(longest, std::char_traits<char>::length(text));
  return std::uint64_t{longest} * rpmtdCount(signatures.get()) <= limit;
}

/// librpm itself compares the number of files with the number of values per file, except for the dependencies.
bool files(Header header) {
  return names(header) && originalNames(header) && isAbsentOr(RPM_STRING_ARRAY_TYPE, header, RPMTAG_CLASSDICT) &&
         isAbsentOr(RPM_STRING_ARRAY_TYPE, header, RPMTAG_FILECAPS) && isAbsentOrText(header, RPMTAG_FILEDIGESTS) &&
         hasAffordableVeritySignatures(header);
}

bool fileDependencies(Header header) {
  const auto isForEachFile = [&](rpmTagVal tag) {
    return headerIsEntry(header, tag) == 0 || numbersOf(header, tag).size() == countOf(header, RPMTAG_BASENAMES);
  };
  return isAbsentOr(RPM_INT32_TYPE, header, RPMTAG_DEPENDSDICT) && isForEachFile(RPMTAG_FILEDEPENDSX) &&
         isForEachFile(RPMTAG_FILEDEPENDSN);
}

/// librpm itself compares the lengths of the lists.
template <rpmTagVal name, rpmTagVal flags>
bool dependencies(Header header) {
  return isAbsentOr(RPM_STRING_ARRAY_TYPE, header, name) && isAbsentOr(RPM_INT32_TYPE, header, flags);
}

constexpr Check provides = dependencies<RPMTAG_PROVIDENAME, RPMTAG_PROVIDEFLAGS>;
constexpr Check requirements = dependencies<RPMTAG_REQUIRENAME, RPMTAG_REQUIREFLAGS>;
constexpr Check conflicts = dependencies<RPMTAG_CONFLICTNAME, RPMTAG_CONFLICTFLAGS>;
constexpr Check obsoletes = dependencies<RPMTAG_OBSOLETENAME, RPMTAG_OBSOLETEFLAGS>;
constexpr Check recommends = dependencies<RPMTAG_RECOMMENDNAME, RPMTAG_RECOMMENDFLAGS>;
constexpr Check suggests = dependencies<RPMTAG_SUGGESTNAME, RPMTAG_SUGGESTFLAGS>;
constexpr Check supplements = dependencies<RPMTAG_SUPPLEMENTNAME, RPMTAG_SUPPLEMENTFLAGS>;
constexpr Check enhances = dependencies<RPMTAG_ENHANCENAME, RPMTAG_ENHANCEFLAGS>;
constexpr Check order = dependencies<RPMTAG_ORDERNAME, RPMTAG_ORDERFLAGS>;
constexpr Check oldSuggests = dependencies<RPMTAG_OLDSUGGESTSNAME, RPMTAG_OLDSUGGESTSFLAGS>;
constexpr Check oldEnhances = dependencies<RPMTAG_OLDENHANCESNAME, RPMTAG_OLDENHANCESFLAGS>;
constexpr Check triggers = dependencies<RPMTAG_TRIGGERNAME, RPMTAG_TRIGGERFLAGS>;
constexpr Check fileTriggers = dependencies<RPMTAG_FILETRIGGERNAME, RPMTAG_FILETRIGGERFLAGS>;
constexpr Check transactionFileTriggers = dependencies<RPMTAG_TRANSFILETRIGGERNAME, RPMTAG_TRANSFILETRIGGERFLAGS>;

/// Without versions librpm compares nothing.
bool comparableProvides(Header header) {
  return headerIsEntry(header, RPMTAG_PROVIDEVERSION) == 0 || provides(header);
}

/// For the conditions of triggers: librpm reads as many script numbers as there are names.
template <rpmTagVal name, rpmTagVal index>
bool conditions(Header header) {
  return headerIsEntry(header, name) == 0 ||
         (isAbsentOrText(header, name) && numbersOf(header, index).size() >= countOf(header, name));
}

/// For the types of triggers: for a script without a condition librpm returns uninitialised memory. rpmbuild makes such
/// a script if two triggers have the same condition.
template <rpmTagVal index, rpmTagVal flags, rpmTagVal script>
bool types(Header header) {
  if (headerIsEntry(header, index) == 0)
    return true;
  std::vector<std::uint32_t> scripts = numbersOf(header, index);
  scripts.resize(std::min(scripts.size(), numbersOf(header, flags).size()));
  std::vector<bool> found(countOf(header, script));
  for (const std::uint32_t number : scripts) {
    if (number < found.size())
      found[number] = true;
  }
  return isAbsentOr(RPM_INT32_TYPE, header, index) && isAbsentOr(RPM_INT32_TYPE, header, flags) &&
         std::ranges::find(found, false) == found.end();
}

/// Reader accepts only single strings as name, version and release; the computed tags must not let a translated version
/// through.
template <rpmTagVal... tags>
bool singleStrings(Header header) {
  const auto isOne = [&](rpmTagVal tag) {
    const TagDataHandle value = ownTagData(rpmtdNew());
    return headerGet(header, tag, value.get(), HEADERGET_MINMEM | HEADERGET_RAW) == 0 ||
           rpmtdType(value.get()) == RPM_STRING_TYPE;
  };
  return (isOne(tags) && ...);
}

constexpr Check version = singleStrings<RPMTAG_VERSION, RPMTAG_RELEASE>;
constexpr Check nameAndVersion = singleStrings<RPMTAG_NAME, RPMTAG_VERSION, RPMTAG_RELEASE>;

struct Computed {
  std::int32_t tag;
  std::array<Check, 3> checks = {};
};

/// The tags that librpm 4.18 and 4.20 compute with a function, and the checks that must pass before it is called.
constexpr auto computedTags = std::to_array<Computed>({
    {RPMTAG_GROUP},
    {RPMTAG_DESCRIPTION},
    {RPMTAG_SUMMARY},
    {RPMTAG_FILECLASS, {files}},
    {RPMTAG_FILENAMES, {names}},
    {RPMTAG_INSTFILENAMES, {names}},
    {RPMTAG_ORIGFILENAMES, {originalNames}},
    {RPMTAG_FILENLINKS, {files}},
    {RPMTAG_FILEPROVIDE, {files, fileDependencies, provides}},
    {RPMTAG_FILEREQUIRE, {files, fileDependencies, requirements}},
    {RPMTAG_TRIGGERCONDS, {conditions<RPMTAG_TRIGGERNAME, RPMTAG_TRIGGERINDEX>}},
    {RPMTAG_FILETRIGGERCONDS, {conditions<RPMTAG_FILETRIGGERNAME, RPMTAG_FILETRIGGERINDEX>}},
    {RPMTAG_TRANSFILETRIGGERCONDS, {conditions<RPMTAG_TRANSFILETRIGGERNAME, RPMTAG_TRANSFILETRIGGERINDEX>}},
    {RPMTAG_TRIGGERTYPE, {types<RPMTAG_TRIGGERINDEX, RPMTAG_TRIGGERFLAGS, RPMTAG_TRIGGERSCRIPTS>}},
    {RPMTAG_FILETRIGGERTYPE, {types<RPMTAG_FILETRIGGERINDEX, RPMTAG_FILETRIGGERFLAGS, RPMTAG_FILETRIGGERSCRIPTS>}},
    {RPMTAG_TRANSFILETRIGGERTYPE,
     {types<RPMTAG_TRANSFILETRIGGERINDEX, RPMTAG_TRANSFILETRIGGERFLAGS, RPMTAG_TRANSFILETRIGGERSCRIPTS>}},
    {RPMTAG_LONGFILESIZES},
    {RPMTAG_LONGARCHIVESIZE},
    {RPMTAG_LONGSIZE},
    {RPMTAG_LONGSIGSIZE},
    {RPMTAG_DBINSTANCE},
    {RPMTAG_EVR, {version}},
    {RPMTAG_NVR, {nameAndVersion}},
    {RPMTAG_NEVR, {nameAndVersion}},
    {RPMTAG_NVRA, {nameAndVersion}},
    {RPMTAG_NEVRA, {nameAndVersion}},
    {RPMTAG_ARCHSUFFIX},
    {RPMTAG_HEADERCOLOR},
    {RPMTAG_VERBOSE},
    {RPMTAG_EPOCHNUM},
    {RPMTAG_REQUIRENEVRS, {requirements}},
    {RPMTAG_RECOMMENDNEVRS, {recommends, oldSuggests}},
    {RPMTAG_SUGGESTNEVRS, {suggests, oldSuggests}},
    {RPMTAG_SUPPLEMENTNEVRS, {supplements, oldEnhances}},
    {RPMTAG_ENHANCENEVRS, {enhances, oldEnhances}},
    {RPMTAG_PROVIDENEVRS, {provides}},
    {RPMTAG_OBSOLETENEVRS, {obsoletes}},
    {RPMTAG_CONFLICTNEVRS, {conflicts}},
    {5109, {provides}}, // RPMTAG_SYSUSERS of librpm 4.20
});

constexpr auto kindsOfDependencies = std::to_array<std::pair<std::int32_t, Check>>({
    {RPMTAG_PROVIDENAME, provides},
    {RPMTAG_REQUIRENAME, requirements},
    {RPMTAG_CONFLICTNAME, conflicts},
    {RPMTAG_OBSOLETENAME, obsoletes},
    {RPMTAG_RECOMMENDNAME, recommends},
    {RPMTAG_SUGGESTNAME, suggests},
    {RPMTAG_SUPPLEMENTNAME, supplements},
    {RPMTAG_ENHANCENAME, enhances},
    {RPMTAG_ORDERNAME, order},
    {RPMTAG_OLDSUGGESTSNAME, oldSuggests},
    {RPMTAG_OLDENHANCESNAME, oldEnhances},
    {RPMTAG_TRIGGERNAME, triggers},
    {RPMTAG_FILETRIGGERNAME, fileTriggers},
    {RPMTAG_TRANSFILETRIGGERNAME, transactionFileTriggers},
});

} // namespace

bool SoundHeader::isComputed(std::int32_t tag) {
  return std::ranges::find(computedTags, tag, &Computed::tag) != computedTags.end();
}

bool SoundHeader::mayCompute(std::int32_t tag) {
  const auto computed = std::ranges::find(computedTags, tag, &Computed::tag);
  return computed != computedTags.end() &&
         std::ranges::all_of(computed->checks, [&](Check check) { return check == nullptr || passes(check); });
}

bool SoundHeader::hasFiles() {
  return passes(files);
}

bool SoundHeader::hasDependencies(std::int32_t tag) {
  const auto kind = std::ranges::find(kindsOfDependencies, tag, &std::pair<std::int32_t, Check>::first);
  return kind != kindsOfDependencies.end() && passes(kind->second);
}

bool SoundHeader::mayCompleteProvides() {
  return passes(comparableProvides);
}

bool SoundHeader::passes(Check check) {
  auto known = m_passed.find(check);
  if (known == m_passed.end())
    known = m_passed.emplace(check, check(m_header.get())).first;
  return known->second;
}

} // namespace Common::Rpm
