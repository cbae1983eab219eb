// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/sound_header.h"

#include <rpm/rpmtag.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace Common::Rpm {

namespace {

struct Value {
  rpmTagType type;
  rpm_count_t count;
};

std::optional<Value> valueOf(Header header, rpmTagVal tag) {
  const TagDataHandle data = ownTagData(rpmtdNew());
  // Not rpmtdCount(), which is 1 for binary data.
  if (headerGet(header, tag, data.get(), HEADERGET_MINMEM | HEADERGET_RAW) == 0)
    return std::nullopt;
  return Value{rpmtdType(data.get()), data->count};
}

/// rpmbuild writes the interpreter of a script as a single text unless it has arguments.
bool isInterpreter(rpmTagVal tag) {
  constexpr std::array tags = {RPMTAG_PREINPROG,    RPMTAG_POSTINPROG,    RPMTAG_PREUNPROG,       RPMTAG_POSTUNPROG,
                               RPMTAG_PRETRANSPROG, RPMTAG_POSTTRANSPROG, RPMTAG_VERIFYSCRIPTPROG};
  return std::ranges::find(tags, tag) != tags.end();
}

bool hasTypeOf(rpmTagVal tag, rpmTagType type) {
  const auto wanted = static_cast<rpmTagType>(rpmTagGetTagType(tag) & RPM_MASK_TYPE);
  const auto isOneText = [](rpmTagType either) { return either == RPM_STRING_TYPE || either == RPM_I18NSTRING_TYPE; };
  return wanted == RPM_NULL_TYPE || type == wanted || (isOneText(type) && (isOneText(wanted) || isInterpreter(tag)));
}

bool haveTheirTypes(Header header) {
  const HeaderIteratorHandle iterator = ownHeaderIterator(headerInitIterator(header));
  for (rpmTagVal tag; (tag = headerNextTag(iterator.get())) != RPMTAG_NOT_FOUND;) {
    const std::optional<Value> value = valueOf(header, tag);
    if (!value || !hasTypeOf(tag, value->type))
      return false;
  }
  return true;
}

/// The tags whose values, each where it is present, form one table, with a name in each row.
const std::vector<std::vector<rpmTagVal>> tables = {
    {RPMTAG_BASENAMES,    RPMTAG_DIRINDEXES,   RPMTAG_FILESIZES,     RPMTAG_LONGFILESIZES,   RPMTAG_FILESTATES,
     RPMTAG_FILEMODES,    RPMTAG_FILERDEVS,    RPMTAG_FILEMTIMES,    RPMTAG_FILEDIGESTS,     RPMTAG_FILELINKTOS,
     RPMTAG_FILEFLAGS,    RPMTAG_FILEUSERNAME, RPMTAG_FILEGROUPNAME, RPMTAG_FILEVERIFYFLAGS, RPMTAG_FILEDEVICES,
     RPMTAG_FILEINODES,   RPMTAG_FILELANGS,    RPMTAG_FILECOLORS,    RPMTAG_FILECLASS,       RPMTAG_FILEDEPENDSX,
     RPMTAG_FILEDEPENDSN, RPMTAG_FILECAPS,     RPMTAG_FILESIGNATURES},
    {RPMTAG_REQUIRENAME, RPMTAG_REQUIREVERSION, RPMTAG_REQUIREFLAGS},
    {RPMTAG_PROVIDENAME, RPMTAG_PROVIDEVERSION, RPMTAG_PROVIDEFLAGS},
    {RPMTAG_CONFLICTNAME, RPMTAG_CONFLICTVERSION, RPMTAG_CONFLICTFLAGS},
    {RPMTAG_OBSOLETENAME, RPMTAG_OBSOLETEVERSION, RPMTAG_OBSOLETEFLAGS},
    {RPMTAG_RECOMMENDNAME, RPMTAG_RECOMMENDVERSION, RPMTAG_RECOMMENDFLAGS},
    {RPMTAG_SUGGESTNAME, RPMTAG_SUGGESTVERSION, RPMTAG_SUGGESTFLAGS},
    {RPMTAG_SUPPLEMENTNAME, RPMTAG_SUPPLEMENTVERSION, RPMTAG_SUPPLEMENTFLAGS},
    {RPMTAG_ENHANCENAME, RPMTAG_ENHANCEVERSION, RPMTAG_ENHANCEFLAGS},
    {RPMTAG_ORDERNAME, RPMTAG_ORDERVERSION, RPMTAG_ORDERFLAGS},
    {RPMTAG_OLDSUGGESTSNAME, RPMTAG_OLDSUGGESTSVERSION, RPMTAG_OLDSUGGESTSFLAGS},
    {RPMTAG_OLDENHANCESNAME, RPMTAG_OLDENHANCESVERSION, RPMTAG_OLDENHANCESFLAGS},
    {RPMTAG_TRIGGERNAME, RPMTAG_TRIGGERVERSION, RPMTAG_TRIGGERFLAGS, RPMTAG_TRIGGERINDEX},
    {RPMTAG_FILETRIGGERNAME, RPMTAG_FILETRIGGERVERSION, RPMTAG_FILETRIGGERFLAGS, RPMTAG_FILETRIGGERINDEX},
    {RPMTAG_TRANSFILETRIGGERNAME, RPMTAG_TRANSFILETRIGGERVERSION, RPMTAG_TRANSFILETRIGGERFLAGS,
     RPMTAG_TRANSFILETRIGGERINDEX},
};

bool haveFullRows(Header header) {
  return std::ranges::all_of(tables, [&](const std::vector<rpmTagVal>& table) {
    const std::optional<Value> names = valueOf(header, table.front());
    return !names || std::ranges::all_of(table, [&](rpmTagVal tag) {
      const std::optional<Value> value = valueOf(header, tag);
      return !value || value->count == names->count;
    });
  });
}

/// Scripts that other packages trigger, the places of their conditions among the scripts, and the conditions.
using TriggerTags = std::array<rpmTagVal, 5>;
constexpr auto triggers = std::to_array<TriggerTags>({
    {RPMTAG_TRIGGERSCRIPTS, RPMTAG_TRIGGERINDEX, RPMTAG_TRIGGERNAME, RPMTAG_TRIGGERVERSION, RPMTAG_TRIGGERFLAGS},
    {RPMTAG_FILETRIGGERSCRIPTS, RPMTAG_FILETRIGGERINDEX, RPMTAG_FILETRIGGERNAME, RPMTAG_FILETRIGGERVERSION,
     RPMTAG_FILETRIGGERFLAGS},
    {RPMTAG_TRANSFILETRIGGERSCRIPTS, RPMTAG_TRANSFILETRIGGERINDEX, RPMTAG_TRANSFILETRIGGERNAME,
     RPMTAG_TRANSFILETRIGGERVERSION, RPMTAG_TRANSFILETRIGGERFLAGS},
});

/// Whether each script has a condition. librpm gives what happened to be in memory for one that has none, and for all
/// of them when a part of the conditions is not there.
bool haveConditions(Header header, const TriggerTags& tags) {
  const auto present = std::ranges::count_if(tags, [&](rpmTagVal tag) { return valueOf(header, tag).has_value(); });
  if (present != static_cast<std::ptrdiff_t>(tags.size()))
    return present == 0;
  std::vector<bool> found(valueOf(header, tags[0])->count);
  const TagDataHandle indexes = ownTagData(rpmtdNew());
  headerGet(header, tags[1], indexes.get(), HEADERGET_MINMEM);
  while (rpmtdNext(indexes.get()) >= 0) {
    const std::uint64_t index = rpmtdGetNumber(indexes.get());
    if (index < found.size())
      found[static_cast<std::size_t>(index)] = true;
  }
  return std::ranges::find(found, false) == found.end();
}

} // namespace

bool isSound(const HeaderHandle& header) {
  return haveTheirTypes(header.get()) && haveFullRows(header.get()) &&
         std::ranges::all_of(triggers, [&](const TriggerTags& tags) { return haveConditions(header.get(), tags); });
}

FileSetHandle fileSetOf(const HeaderHandle& header) {
  return isSound(header) ? ownFileSet(rpmfilesNew(nullptr, header.get(), 0, RPMFI_KEEPHEADER)) : nullptr;
}

} // namespace Common::Rpm
