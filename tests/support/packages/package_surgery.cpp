// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/packages/package_surgery.h"

#include "common/rpm/handles.h"
#include "tests/support/process/temp_directory.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace Support {

namespace {

// A header: eight bytes of magic, the number of entries, the size of the data, the entries (tag, type, offset in the
// data, count), the data. All numbers are big-endian.
constexpr std::size_t leadSize = 96;
constexpr std::size_t introSize = 16;
constexpr std::size_t entrySize = 16;
constexpr std::string_view magic("\x8e\xad\xe8\x01\0\0\0\0", 8);

std::uint32_t numberAt(const std::string& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i)
    value = value << 8 | static_cast<unsigned char>(bytes.at(offset + i));
  return value;
}

std::string asBytes(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(number >> shift & 0xff);
  return bytes;
}

std::size_t headerSize(const std::string& bytes, std::size_t offset) {
  return introSize + entrySize * numberAt(bytes, offset + 8) + numberAt(bytes, offset + 12);
}

std::size_t padded(std::size_t size) {
  return (size + 7) / 8 * 8;
}

/// The smallest valid signature header: only the size of the rest of the file.
std::string leastSignatureHeader(std::size_t contentSize) {
  std::string header = std::string(magic) + asBytes(1) + asBytes(4) + asBytes(RPMSIGTAG_SIZE) +
                       asBytes(RPM_INT32_TYPE) + asBytes(0) + asBytes(1) +
                       asBytes(static_cast<std::uint32_t>(contentSize));
  header.resize(padded(header.size()));
  return header;
}

std::string sha256(const std::string& bytes) {
  const DIGEST_CTX digest = rpmDigestInit(RPM_HASH_SHA256, RPMDIGEST_NONE);
  rpmDigestUpdate(digest, bytes.data(), bytes.size());
  void* digits = nullptr;
  rpmDigestFinal(digest, &digits, nullptr, 1);
  const std::unique_ptr<void, decltype(&free)> owned(digits, &free);
  return static_cast<const char*>(digits);
}

/// The offset of the main header's entry of `tag`.
std::size_t entryOffset(const std::string& package, std::int32_t tag) {
  const std::size_t begin = mainHeaderOffset(package);
  const std::size_t end = begin + introSize + entrySize * numberAt(package, begin + 8);
  for (std::size_t entry = begin + introSize; entry < end; entry += entrySize)
    if (numberAt(package, entry) == static_cast<std::uint32_t>(tag))
      return entry;
  throw std::runtime_error("the package has no tag " + std::to_string(tag));
}

/// Writes the package again with the main header and payload in `content`.
void writeContent(const std::filesystem::path& package, const std::string& before, const std::string& content) {
  writeFile(package, before.substr(0, leadSize) + leastSignatureHeader(content.size()) + content);
}

} // namespace

std::size_t mainHeaderOffset(const std::string& package) {
  return leadSize + padded(headerSize(package, leadSize));
}

std::size_t payloadOffset(const std::string& package) {
  const std::size_t main = mainHeaderOffset(package);
  return main + headerSize(package, main);
}

void hideTag(const std::filesystem::path& package, std::int32_t tag) {
  constexpr std::uint32_t unusedTag = 0x7ffffff0;
  std::string bytes = readFile(package);
  bytes.replace(entryOffset(bytes, tag), 4, asBytes(unusedTag));
  writeContent(package, bytes, bytes.substr(mainHeaderOffset(bytes)));
}

void putValue(Header header, rpmTagVal tag, rpmTagType type, const void* value, rpm_count_t count) {
  const Common::Rpm::TagDataHandle data = Common::Rpm::ownTagData(rpmtdNew());
  data->tag = tag;
  data->type = type;
  data->count = count;
  data->data = const_cast<void*>(value); // headerPut() copies
  if (headerPut(header, data.get(), HEADERPUT_DEFAULT) == 0)
    throw std::runtime_error("this cannot be put under tag " + std::to_string(tag));
}

void changeHeader(const std::filesystem::path& package, const std::function<void(Header)>& change, Region region) {
  const std::string bytes = readFile(package);
  const std::size_t begin = mainHeaderOffset(bytes) + magic.size();
  std::string blob = bytes.substr(begin, payloadOffset(bytes) - begin);
  const auto header =
      Common::Rpm::ownHeader(headerImport(blob.data(), static_cast<unsigned int>(blob.size()), HEADERIMPORT_COPY));
  if (!header)
    throw std::runtime_error("not a package: " + package.string());
  // The copy has no region, which would protect its tags from the change. headerReload() adds one.
  const auto copy = Common::Rpm::ownHeader(headerCopy(header.get()));
  change(copy.get());
  const auto changed = region == Region::None
                           ? copy
                           : Common::Rpm::ownHeader(headerReload(headerLink(copy.get()), RPMTAG_HEADERIMMUTABLE));
  unsigned int size = 0;
  const std::unique_ptr<void, decltype(&free)> exported(headerExport(changed.get(), &size), &free);
  writeContent(package, bytes,
               std::string(magic) + std::string(static_cast<const char*>(exported.get()), size) +
                   bytes.substr(payloadOffset(bytes)));
}

void sealHeader(const std::filesystem::path& package, std::size_t excess) {
  const std::string bytes = readFile(package);
  const std::string content = bytes.substr(mainHeaderOffset(bytes));
  const auto size = static_cast<std::uint32_t>(content.size() + excess);
  const std::string digest = sha256(content.substr(0, headerSize(content, 0)));
  // The number comes first because of its alignment.
  std::string header = std::string(magic) + asBytes(2) + asBytes(static_cast<std::uint32_t>(4 + digest.size() + 1));
  header += asBytes(RPMSIGTAG_SIZE) + asBytes(RPM_INT32_TYPE) + asBytes(0) + asBytes(1);
  header += asBytes(RPMSIGTAG_SHA256) + asBytes(RPM_STRING_TYPE) + asBytes(4) + asBytes(1);
  header += asBytes(size) + digest;
  header.resize(padded(header.size() + 1));
  writeFile(package, bytes.substr(0, leadSize) + header + content);
}

void replacePayload(const std::filesystem::path& package, std::string_view payload) {
  const std::string bytes = readFile(package);
  const std::size_t begin = mainHeaderOffset(bytes);
  writeContent(package, bytes, bytes.substr(begin, payloadOffset(bytes) - begin) + std::string(payload));
}

void replaceEverywhere(const std::filesystem::path& package, std::string_view from, std::string_view to) {
  const std::string bytes = readFile(package);
  std::string content = bytes.substr(mainHeaderOffset(bytes));
  std::size_t place = content.find(from);
  if (place == std::string::npos || from.size() != to.size())
    throw std::runtime_error("this cannot be replaced in " + package.string());
  for (; place != std::string::npos; place = content.find(from, place + to.size()))
    content.replace(place, from.size(), to);
  writeContent(package, bytes, content);
}

} // namespace Support
