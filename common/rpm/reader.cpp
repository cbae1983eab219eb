// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/reader.h"

#include "common/error/error.h"
#include "common/rpm/configuration.h"
#include "common/rpm/sound_header.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmtag.h>

#include <array>
#include <optional>
#include <utility>

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Common::Rpm {

static_assert(Tag::Name == RPMTAG_NAME && Tag::Version == RPMTAG_VERSION && Tag::Release == RPMTAG_RELEASE &&
              Tag::Architecture == RPMTAG_ARCH && Tag::PayloadCompressor == RPMTAG_PAYLOADCOMPRESSOR &&
              Tag::FullVersion == RPMTAG_EVR);

namespace {

/// Opening a FIFO would block for ever and opening a device may do anything, so the file's type is asked first.
FileHandle openPackage(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0)
    throw Error(ErrorCode::FileNotFound, "Couldn't open rpm package");
  if (!S_ISREG(status.st_mode))
    throw Error(ErrorCode::BadPackageFileFormat, "Couldn't read rpm package");
  FileHandle file = ownFile(Fopen(path.c_str(), "r.ufdio"));
  if (!file)
    throw Error(ErrorCode::FileNotFound, "Couldn't open rpm package");
  return file;
}

/// The size of the header whose intro (magic, number of entries, size of the data) is at `offset`; nothing when the
/// file ends before.
std::optional<off_t> headerSize(int file, off_t offset) {
  constexpr off_t entrySize = 16;
  std::array<std::uint32_t, 4> intro{};
  if (pread(file, intro.data(), sizeof intro, offset) != sizeof intro)
    return std::nullopt;
  return off_t{sizeof intro} + entrySize * ntohl(intro[2]) + ntohl(intro[3]);
}

/// Whether the file holds the headers that it claims to have, and no main header beyond measure. librpm takes memory
/// for what is claimed before it reads, up to 64 and 256 MiB, and ends the process when there is none.
bool hasReadableSize(int file) {
  constexpr off_t leadSize = 96;
  // The name of a package is sent over the bus, which cuts the connection of who sends more than 32 MiB: one package
  // would take all that follow with it.
  constexpr off_t largestHeader = 31 * 1024 * 1024;
  struct stat status {};
  const std::optional<off_t> signatureHeader = headerSize(file, leadSize);
  if (!signatureHeader || fstat(file, &status) != 0)
    return false;
  const off_t begin = leadSize + (*signatureHeader + 7) / 8 * 8;
  const std::optional<off_t> header = headerSize(file, begin);
  return header && *header <= largestHeader && *header <= status.st_size - begin;
}

/// A transaction set that shares one keyring with all others. Left alone, each set would load the keyring from the RPM
/// database at its first use, which costs many times more than reading a package.
TransactionSetHandle transactionSet() {
  static KeyringHandle keyring;
  TransactionSetHandle set = ownTransactionSet(rpmtsCreate());
  rpmtsSetRootDir(set.get(), nullptr);
  if (keyring)
    rpmtsSetKeyring(set.get(), keyring.get());
  else if (isRpmConfigured()) // without a configuration the keyring is empty, and it would stay so
    keyring = ownKeyring(rpmtsGetKeyring(set.get(), 1));
  return set;
}

HeaderHandle readHeader(const FileHandle& file, const std::string& path) {
  if (!hasReadableSize(Fileno(file.get())))
    throw Error(ErrorCode::BadPackageFileFormat, "Couldn't read rpm package");
  const TransactionSetHandle set = transactionSet();
  Header found = nullptr;
  const rpmRC result = rpmReadPackageFile(set.get(), file.get(), path.c_str(), &found);
  // The header may be set although the result is a failure.
  HeaderHandle header = ownHeader(found);
  if (result != RPMRC_OK)
    throw Error(ErrorCode::BadPackageFileFormat, "Couldn't read rpm package");
  return header;
}

/// These values stand in the header as they are. Other tags may be computed from several.
bool mayBeAskedFor(std::int32_t tag, const HeaderHandle& header) {
  const bool isPlain = tag == Tag::Name || tag == Tag::Version || tag == Tag::Release || tag == Tag::PayloadCompressor;
  return isPlain || isSound(header);
}

/// Without a value, and so without a text, for a tag that is absent or must not be asked for.
TagDataHandle valueOf(std::int32_t tag, const HeaderHandle& header) {
  TagDataHandle data = ownTagData(rpmtdNew());
  if (mayBeAskedFor(tag, header))
    headerGet(header.get(), static_cast<rpm_tag_t>(tag), data.get(), HEADERGET_EXT);
  return data;
}

} // namespace

Reader::Reader(const std::string& path) {
  ensureRpmConfig();
  m_file = openPackage(path);
  m_header = readHeader(m_file, path);
}

Reader::Reader(Header header) : m_header(borrowHeader(header)) {
  ensureRpmConfig();
}

Reader::Reader(HeaderHandle header) : m_header(std::move(header)) {
  ensureRpmConfig();
}

std::string Reader::tag(std::int32_t tag) const {
  const TagDataHandle data = valueOf(tag, m_header);
  if (const char* text = rpmtdGetString(data.get()))
    return text;
  throw Error(ErrorCode::BadPackageFileFormat,
              "Couldn't retrieve rpm tag from package (type=" + std::to_string(tag) + ")");
}

std::string Reader::tagOr(std::int32_t tag, const std::string& fallback) const {
  try {
    return this->tag(tag);
  } catch (const Error&) {
    return fallback;
  }
}

std::vector<std::string> Reader::texts(std::int32_t tag) const {
  const TagDataHandle data = valueOf(tag, m_header);
  std::vector<std::string> found;
  while (const char* text = rpmtdNextString(data.get()))
    found.emplace_back(text);
  return found;
}

} // namespace Common::Rpm
