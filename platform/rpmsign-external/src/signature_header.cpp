// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/signature_header.h"

#include <rpm/header.h>
#include <rpm/rpmtag.h>
#include <rpm/rpmtd.h>
#include <rpmsign-external/signing.h>

#include <cstdlib>
#include <memory>

namespace PackageSignatures {

namespace {

using HeaderPtr = std::unique_ptr<headerToken_s, Release<headerFree>>;
using HeaderIteratorPtr = std::unique_ptr<headerIterator_s, Release<headerFreeIterator>>;
using TagDataPtr = std::unique_ptr<rpmtd_s, Release<rpmtdFree>>;
using BlobPtr = std::unique_ptr<void, Release<std::free>>;

/// The magic comes before the two counts in a file; librpm leaves it out in memory.
constexpr std::size_t magicSize = sizeof(rpm_header_magic);

[[noreturn]] void failAsDamaged() {
  throw SigningError("its signature header is damaged");
}

/// Adds a binary tag of any number; headerPutBin() refuses numbers that librpm has no name for.
void putBinary(Header header, std::uint32_t tag, std::string_view value) {
  const TagDataPtr data(rpmtdNew());
  data->tag = static_cast<rpm_tag_t>(tag);
  data->type = RPM_BIN_TYPE;
  data->count = static_cast<rpm_count_t>(value.size());
  data->data = const_cast<char*>(value.data()); // headerPut() copies it
  if (headerPut(header, data.get(), HEADERPUT_DEFAULT) != 1)
    throw SigningError("librpm refuses " + std::to_string(value.size()) + " bytes of signatures");
}

/// The header without its immutable region, so that it can be changed.
HeaderPtr importTags(std::string& blob) {
  const HeaderPtr stored(headerImport(blob.data(), static_cast<unsigned int>(blob.size()), HEADERIMPORT_COPY));
  if (!stored)
    failAsDamaged();
  HeaderPtr tags(headerNew());
  const HeaderIteratorPtr iterator(headerInitIterator(stored.get()));
  const TagDataPtr tag(rpmtdNew());
  while (headerNext(iterator.get(), tag.get()) == 1) {
    const bool copied = headerPut(tags.get(), tag.get(), HEADERPUT_DEFAULT) == 1;
    rpmtdFreeData(tag.get());
    if (!copied)
      failAsDamaged();
  }
  return tags;
}

std::size_t sizeOf(Header header) {
  return headerSizeof(header, HEADER_MAGIC_YES);
}

void adjustReservedSpace(Header tags, std::size_t originalSize) {
  const TagDataPtr reserved(rpmtdNew());
  if (headerGet(tags, RPMSIGTAG_RESERVEDSPACE, reserved.get(), HEADERGET_MINMEM) != 1)
    return;
  // Not rpmtdCount(), which is 1 for any binary tag.
  const std::size_t available = originalSize + reserved->count;
  const std::size_t size = sizeOf(tags);
  rpmtdFreeData(reserved.get());
  if (size == originalSize || size >= available)
    return;
  headerDel(tags, RPMSIGTAG_RESERVEDSPACE);
  putBinary(tags, RPMSIGTAG_RESERVEDSPACE, std::string(available - size, '\0'));
}

void checkLimits(Header header) {
  const HeaderIteratorPtr iterator(headerInitIterator(header));
  std::uint32_t entries = 1; // the region
  while (headerNextTag(iterator.get()) != RPMTAG_NOT_FOUND)
    ++entries;
  if (entries > maximalEntries)
    throw SigningError("its signature header would have " + std::to_string(entries) +
                       " entries, and RPM reads at most " + std::to_string(maximalEntries));
  const std::size_t data = sizeOf(header) - magicSize - 8 - entries * 16;
  if (data > maximalData)
    throw SigningError("its signature header would have " + std::to_string(data) +
                       " bytes of data, and RPM reads at most " + std::to_string(maximalData));
}

} // namespace

std::string rewriteSignatureHeader(int file, const PackageParts& parts, std::string_view container) {
  std::optional<std::string> blob = readRange(file, leadSize + magicSize, parts.headerSize - magicSize);
  if (!blob)
    failAsDamaged();
  HeaderPtr tags = importTags(*blob);
  const std::size_t originalSize = sizeOf(tags.get());
  headerDel(tags.get(), static_cast<rpmTagVal>(containerTag));
  if (container.size() > maximalContainer)
    throw SigningError("its signatures would have " + std::to_string(container.size()) + " bytes, and at most " +
                       std::to_string(maximalContainer) + " are read");
  if (!container.empty())
    putBinary(tags.get(), containerTag, container);
  adjustReservedSpace(tags.get(), originalSize);

  const HeaderPtr header(headerReload(tags.release(), RPMTAG_HEADERSIGNATURES));
  if (!header)
    failAsDamaged();
  checkLimits(header.get());
  unsigned int size = 0;
  const BlobPtr exported(headerExport(header.get(), &size));
  if (!exported)
    failAsDamaged();
  std::string bytes(reinterpret_cast<const char*>(rpm_header_magic), magicSize);
  bytes.append(static_cast<const char*>(exported.get()), size);
  bytes.resize((bytes.size() + 7) / 8 * 8, '\0');
  return bytes;
}

} // namespace PackageSignatures
