// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/package_length.h"

#include "common/error/error.h"

#include <rpm/header.h>
#include <rpm/rpmtag.h>

#include <array>
#include <optional>

#include <arpa/inet.h>
#include <unistd.h>

namespace Acceptance {

namespace {

/// Where the main header begins: behind the lead and the signature header, which is padded to eight bytes.
std::optional<std::uint64_t> mainHeaderOffset(int file) {
  constexpr std::uint64_t leadSize = 96;
  constexpr std::uint64_t entrySize = 16;
  std::array<std::uint32_t, 4> intro{}; // magic, a reserved word, number of entries, size of the data
  if (pread(file, intro.data(), sizeof intro, leadSize) != sizeof intro)
    return std::nullopt;
  const std::uint64_t size = sizeof intro + entrySize * ntohl(intro[2]) + ntohl(intro[3]);
  return leadSize + (size + 7) / 8 * 8;
}

/// The size of the main header and the payload according to the signature header; 0 if it does not say.
std::uint64_t promisedSize(const Common::Rpm::Reader& package) {
  // librpm answers with the smaller tag for packages that have no large one.
  return headerGetNumber(package.header().get(), RPMTAG_LONGSIGSIZE);
}

} // namespace

void requireNothingBehindPayload(const Common::Rpm::Reader& package, int file, std::uint64_t size,
                                 const std::string& path) {
  const std::optional<std::uint64_t> begin = mainHeaderOffset(file);
  // rpm(8) refuses bytes behind the payload as well, because they are in its digests; librpm alone passes over them.
  if (!begin || *begin > size || size - *begin > promisedSize(package))
    throw Common::Error(Common::ErrorCode::BadPackageFileFormat,
                        "The package file is longer than its headers say: " + path);
}

} // namespace Acceptance
