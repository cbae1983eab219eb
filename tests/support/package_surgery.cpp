// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/package_surgery.h"

#include "common/rpm/handles.h"
#include "tests/support/temp_directory.h"

#include <memory>
#include <stdexcept>

#include <rpm/rpmlib.h>

namespace Support {

namespace {

constexpr std::size_t leadSize = 96;
const std::string headerMagic("\x8e\xad\xe8\x01\0\0\0\0", 8);

std::size_t numberAt(const std::string& bytes, std::size_t offset) {
  std::size_t value = 0;
  for (std::size_t i = 0; i < 4; ++i)
    value = value << 8 | static_cast<unsigned char>(bytes.at(offset + i));
  return value;
}

/// A header: eight bytes of magic, the two counts, sixteen bytes per entry, the data.
std::size_t headerSize(const std::string& bytes, std::size_t offset) {
  return 16 + 16 * numberAt(bytes, offset + 8) + numberAt(bytes, offset + 12);
}

std::size_t padded(std::size_t size) {
  return (size + 7) / 8 * 8;
}

std::size_t mainHeaderOffset(const std::string& package) {
  return leadSize + padded(headerSize(package, leadSize));
}

/// The header as a file has it. `region` makes it one that cannot be changed afterwards, as packages have it.
std::string exported(Header header, rpmTagVal region) {
  const Common::Rpm::HeaderHandle reloaded = Common::Rpm::ownHeader(headerReload(header, region));
  unsigned int size = 0;
  const std::unique_ptr<void, decltype(&free)> blob(headerExport(reloaded.get(), &size), &free);
  return headerMagic + std::string(static_cast<const char*>(blob.get()), size);
}

std::string emptySignatureHeader(std::size_t contentSize) {
  Header header = headerNew();
  const auto size = static_cast<std::uint32_t>(contentSize);
  headerPutUint32(header, RPMSIGTAG_SIZE, &size, 1);
  std::string bytes = exported(header, RPMTAG_HEADERSIGNATURES);
  bytes.resize(padded(bytes.size()));
  return bytes;
}

} // namespace

std::size_t payloadOffset(const std::string& package) {
  const std::size_t main = mainHeaderOffset(package);
  return main + headerSize(package, main);
}

void removeTag(const std::filesystem::path& package, std::int32_t tag) {
  const std::string bytes = readFile(package);
  const std::size_t main = mainHeaderOffset(bytes);
  std::string blob = bytes.substr(main + headerMagic.size(), headerSize(bytes, main) - headerMagic.size());
  const auto size = static_cast<unsigned int>(blob.size());
  const auto header = Common::Rpm::ownHeader(headerImport(blob.data(), size, HEADERIMPORT_COPY));
  if (!header)
    throw std::runtime_error("not a package: " + package.string());
  // A copy has left the region behind that shields its tags.
  Header changed = headerCopy(header.get());
  if (headerDel(changed, tag) != 0)
    throw std::runtime_error("no such tag in " + package.string());
  const std::string rest = exported(changed, RPMTAG_HEADERIMMUTABLE) + bytes.substr(payloadOffset(bytes));
  writeFile(package, bytes.substr(0, leadSize) + emptySignatureHeader(rest.size()) + rest);
}

} // namespace Support
