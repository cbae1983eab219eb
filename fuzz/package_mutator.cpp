// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "fuzz/mutator.h"

#include <rpm/rpmtag.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace Fuzz {

namespace {

// docs/signature-format.md describes the parts of a package. All numbers are big-endian.
constexpr std::size_t leadSize = 96;
constexpr std::size_t introSize = 16;
constexpr std::size_t entrySize = 16;
constexpr std::string_view magic("\x8e\xad\xe8\x01\0\0\0\0", 8);

struct Entry {
  std::uint32_t tag;
  std::uint32_t type;
  std::uint32_t count;
  std::string value;
};

/// The entries in the order of their values. Headers of current tools begin with an entry for the region of all other
/// entries; it is not in the list because it is computed from them.
struct HeaderParts {
  std::optional<std::uint32_t> region;
  std::vector<Entry> entries;
};

struct PackageParts {
  std::string lead;
  HeaderParts signature;
  HeaderParts main;
  std::string payload;
};

std::uint32_t numberAt(std::string_view bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (const char byte : bytes.substr(offset, 4))
    value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

void append(std::string& bytes, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(number >> shift & 0xff);
}

std::string_view take(std::string_view& bytes, std::size_t size) {
  const std::string_view taken = bytes.substr(0, size);
  bytes.remove_prefix(taken.size());
  return taken;
}

bool isText(std::uint32_t type) {
  return type == RPM_STRING_TYPE || type == RPM_STRING_ARRAY_TYPE || type == RPM_I18NSTRING_TYPE;
}

std::size_t elementSize(std::uint32_t type) {
  switch (type) {
  case RPM_INT16_TYPE:
    return 2;
  case RPM_INT32_TYPE:
    return 4;
  case RPM_INT64_TYPE:
    return 8;
  default:
    return 1;
  }
}

/// Returns the entry's value from the data, which begins with it.
std::string_view valueIn(std::string_view data, std::uint32_t type, std::size_t count) {
  if (!isText(type))
    return data.substr(0, count * elementSize(type));
  std::size_t end = 0;
  for (std::size_t i = 0; i < count && end < data.size(); ++i)
    end = std::min(data.find('\0', end), data.size() - 1) + 1;
  return data.substr(0, end);
}

std::optional<HeaderParts> takeHeader(std::string_view& bytes) {
  if (bytes.size() < introSize || !bytes.starts_with(magic))
    return std::nullopt;
  const std::string_view intro = take(bytes, introSize);
  const std::size_t count = numberAt(intro, 8);
  const std::size_t size = numberAt(intro, 12);
  if (count > bytes.size() / entrySize || size > bytes.size() - count * entrySize)
    return std::nullopt;
  std::string_view entries = take(bytes, count * entrySize);
  const std::string_view data = take(bytes, size);
  HeaderParts header;
  while (!entries.empty()) {
    const std::string_view entry = take(entries, entrySize);
    const std::uint32_t tag = numberAt(entry, 0);
    const std::uint32_t type = numberAt(entry, 4);
    const std::uint32_t offset = numberAt(entry, 8);
    const std::uint32_t length = numberAt(entry, 12);
    if (tag == RPMTAG_HEADERSIGNATURES || tag == RPMTAG_HEADERIMMUTABLE)
      header.region = tag;
    else if (offset < data.size())
      header.entries.push_back({.tag = tag,
                                .type = type,
                                .count = length,
                                .value = std::string(valueIn(data.substr(offset), type, length))});
  }
  return header;
}

std::optional<PackageParts> takeApart(std::string_view package) {
  PackageParts parts;
  std::string_view rest = package;
  parts.lead = take(rest, leadSize);
  std::optional<HeaderParts> signature = takeHeader(rest);
  if (!signature)
    return std::nullopt;
  take(rest, (8 - (package.size() - rest.size()) % 8) % 8);
  std::optional<HeaderParts> main = takeHeader(rest);
  if (!main)
    return std::nullopt;
  parts.signature = std::move(*signature);
  parts.main = std::move(*main);
  parts.payload = rest;
  return parts;
}

void append(std::string& bytes, const HeaderParts& header) {
  std::string entries;
  std::string data;
  const auto addEntry = [&](std::uint32_t tag, std::uint32_t type, std::uint32_t count) {
    for (const std::uint32_t number : {tag, type, static_cast<std::uint32_t>(data.size()), count})
      append(entries, number);
  };
  for (const Entry& entry : header.entries) {
    const std::size_t alignment = elementSize(entry.type);
    data.resize((data.size() + alignment - 1) / alignment * alignment);
    addEntry(entry.tag, entry.type, entry.count);
    data += entry.value;
  }
  if (header.region) {
    std::string others;
    others.swap(entries);
    addEntry(*header.region, RPM_BIN_TYPE, entrySize);
    entries += others;
    // The region's data are the number of its entries, as a negative offset.
    const auto length = static_cast<std::uint32_t>(entries.size());
    for (const std::uint32_t number : {*header.region, std::uint32_t{RPM_BIN_TYPE}, 0U - length, std::uint32_t{16}})
      append(data, number);
  }
  bytes += magic;
  append(bytes, static_cast<std::uint32_t>(entries.size() / entrySize));
  append(bytes, static_cast<std::uint32_t>(data.size()));
  bytes += entries + data;
}

std::string putTogether(const PackageParts& parts) {
  std::string package = parts.lead;
  append(package, parts.signature);
  package.resize((package.size() + 7) / 8 * 8);
  append(package, parts.main);
  return package + parts.payload;
}

bool isDigestOrSignature(const Entry& entry) {
  constexpr std::array<std::uint32_t, 11> tags = {
      RPMSIGTAG_DSA, RPMSIGTAG_RSA, RPMSIGTAG_SHA1, RPMSIGTAG_SHA256, RPMSIGTAG_LEMD5_1,  RPMSIGTAG_LEMD5_2,
      RPMSIGTAG_PGP, RPMSIGTAG_MD5, RPMSIGTAG_GPG,  RPMSIGTAG_PGP5,   RPMSIGTAG_BADSHA1_1};
  return std::ranges::find(tags, entry.tag) != tags.end();
}

/// A number at the edge of a range.
std::uint32_t oddNumber(std::uint32_t old, Random& random) {
  const std::array<std::uint32_t, 11> numbers = {
      0, 1, 2, old - 1, old + 1, old * 2, old / 2, 0x7fffffff, 0x80000000, 0xffffffff, 1U << random() % 32};
  return numbers[random() % numbers.size()];
}

/// Tags whose values must fit each other, or from which accessors compute other values.
std::uint32_t tellingTag(Random& random) {
  constexpr std::array<std::uint32_t, 40> tags = {
      RPMTAG_NAME,          RPMTAG_VERSION,           RPMTAG_RELEASE,         RPMTAG_EPOCH,
      RPMTAG_ARCH,          RPMTAG_SUMMARY,           RPMTAG_HEADERI18NTABLE, RPMTAG_BASENAMES,
      RPMTAG_DIRNAMES,      RPMTAG_DIRINDEXES,        RPMTAG_OLDFILENAMES,    RPMTAG_FILESIZES,
      RPMTAG_LONGFILESIZES, RPMTAG_FILEMODES,         RPMTAG_FILEFLAGS,       RPMTAG_FILELINKTOS,
      RPMTAG_FILEDIGESTS,   RPMTAG_FILEDIGESTALGO,    RPMTAG_FILEINODES,      RPMTAG_FILEDEVICES,
      RPMTAG_FILENLINKS,    RPMTAG_FILECLASS,         RPMTAG_CLASSDICT,       RPMTAG_FILECOLORS,
      RPMTAG_FILEDEPENDSX,  RPMTAG_FILEDEPENDSN,      RPMTAG_DEPENDSDICT,     RPMTAG_FILECAPS,
      RPMTAG_FILESTATES,    RPMTAG_REQUIRENAME,       RPMTAG_REQUIREVERSION,  RPMTAG_REQUIREFLAGS,
      RPMTAG_PROVIDENAME,   RPMTAG_PROVIDEVERSION,    RPMTAG_PROVIDEFLAGS,    RPMTAG_TRIGGERNAME,
      RPMTAG_TRIGGERINDEX,  RPMTAG_PAYLOADCOMPRESSOR, RPMTAG_PAYLOADFLAGS,    RPMTAG_PAYLOADFORMAT};
  return tags[random() % tags.size()];
}

/// Changes the texts, and the count with them.
void mutateText(Entry& entry, Random& random) {
  entry.value = mutateBytes(entry.value, entry.value.size() + 64) + '\0';
  if (random() % 2 == 0) // keep the count
    entry.value = valueIn(entry.value, entry.type, entry.count);
  if (entry.type == RPM_STRING_TYPE)
    entry.value = valueIn(entry.value, entry.type, 1);
  entry.count = static_cast<std::uint32_t>(std::ranges::count(entry.value, '\0'));
}

void mutateNumbers(Entry& entry, Random& random) {
  const std::size_t size = elementSize(entry.type);
  if (random() % 3 == 0) {
    entry.count = static_cast<std::uint32_t>(1 + random() % (std::uint64_t{entry.count} + 2));
    entry.value.resize(entry.count * size);
    return;
  }
  if (size < 4 || entry.value.size() < size) {
    entry.value = mutateBytes(entry.value, entry.value.size());
    entry.value.resize(entry.count * size);
    return;
  }
  const std::size_t begin = random() % (entry.value.size() / size) * size;
  std::string number;
  if (size == 8)
    append(number, oddNumber(numberAt(entry.value, begin), random));
  append(number, oddNumber(numberAt(entry.value, begin + size - 4), random));
  entry.value.replace(begin, size, number);
}

void mutateValue(Entry& entry, Random& random) {
  constexpr std::uint32_t limit = 64 * 1024; // repeated mutations must not grow without limit
  if (entry.count > limit)
    entry.count = limit;
  if (isText(entry.type))
    mutateText(entry, random);
  else
    mutateNumbers(entry, random);
}

void mutateEntries(std::vector<Entry>& entries, Random& random) {
  if (entries.empty())
    return;
  Entry& entry = entries[random() % entries.size()];
  const Entry other = entries[random() % entries.size()];
  const auto place = entries.begin() + static_cast<std::ptrdiff_t>(random() % entries.size());
  switch (random() % 16) {
  case 0:
    entry.type = static_cast<std::uint32_t>(random() % 11);
    break;
  case 1:
    entry.count = oddNumber(entry.count, random);
    break;
  case 2:
    entries.erase(place);
    break;
  case 3:
    entries.insert(place, other);
    break;
  case 4:
  case 5:
    entry = {.tag = entry.tag, .type = other.type, .count = other.count, .value = other.value};
    break;
  case 6:
  case 7:
  case 8:
    entry.tag = tellingTag(random);
    break;
  default:
    mutateValue(entry, random);
  }
}

void mutateHeader(HeaderParts& header, Random& random) {
  for (std::size_t changes = 1 + random() % 3; changes > 0; --changes)
    mutateEntries(header.entries, random);
}

/// Corrects the size of the main header and payload in the signature header.
void repairSize(PackageParts& parts) {
  std::string content;
  append(content, parts.main);
  const auto size = static_cast<std::uint32_t>(content.size() + parts.payload.size());
  for (Entry& entry : parts.signature.entries) {
    if (entry.tag != RPMSIGTAG_SIZE || entry.type != RPM_INT32_TYPE || entry.count != 1)
      continue;
    entry.value.clear();
    append(entry.value, size);
  }
}

} // namespace

std::string mutatePackage(std::string_view package, Random& random) {
  std::optional<PackageParts> parts = takeApart(package);
  if (!parts || random() % 16 == 0)
    return mutateBytes(std::string(package), package.size() + 64);
  switch (random() % 8) {
  case 0:
    parts->lead = mutateBytes(parts->lead, parts->lead.size());
    break;
  case 1:
    mutateHeader(parts->signature, random);
    break;
  case 2:
  case 3:
  case 4:
    parts->payload = mutateBytes(parts->payload, parts->payload.size() + 256);
    break;
  default:
    mutateHeader(parts->main, random);
  }
  if (random() % 16 != 0) {
    std::erase_if(parts->signature.entries, isDigestOrSignature);
    repairSize(*parts);
  }
  return putTogether(*parts);
}

} // namespace Fuzz
