// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/reader.h"

#include "common/error/error.h"
#include "common/posix/regular_file.h"
#include "common/rpm/configuration.h"
#include "common/rpm/handles.h"
#include "common/rpm/sound_header.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmtag.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Common::Rpm {

static_assert(Tag::Name == RPMTAG_NAME && Tag::Version == RPMTAG_VERSION && Tag::Release == RPMTAG_RELEASE &&
              Tag::Architecture == RPMTAG_ARCH && Tag::PayloadCompressor == RPMTAG_PAYLOADCOMPRESSOR &&
              Tag::FullVersion == RPMTAG_EVR);

namespace {

Error openError() {
  return {ErrorCode::FileNotFound, "Couldn't open rpm package"};
}

Error readError() {
  return {ErrorCode::BadPackageFileFormat, "Couldn't read rpm package"};
}

struct OpenPackage {
  FileHandle file;
  off_t size;
};

/// librpm does not get the path, which may look like an address on the network to it. A "regular file" without a size,
/// as /proc/kmsg is, may keep its reader waiting.
OpenPackage openPackage(const std::string& path) {
  struct stat status {};
  const Posix::FileDescriptor opened = Posix::openRegularFile(path.c_str(), O_RDONLY, 0, status, 1);
  if (!opened)
    throw errno == ENOTSUP ? readError() : openError();
  FileHandle file = ownFile(fdDup(opened.get()));
  if (!file || fcntl(Fileno(file.get()), F_SETFD, FD_CLOEXEC) != 0)
    throw openError();
  return {std::move(file), status.st_size};
}

/// Fills `value` from the file at `offset`. Returns false if the file ends before or cannot be read.
template <typename Value>
bool readAt(int file, off_t offset, Value& value) {
  std::span<std::byte> rest = std::as_writable_bytes(std::span(&value, 1));
  while (!rest.empty()) {
    const ssize_t count = TEMP_FAILURE_RETRY(pread(file, rest.data(), rest.size(), offset));
    if (count <= 0)
      return false;
    rest = rest.subspan(static_cast<std::size_t>(count));
    offset += count;
  }
  return true;
}

struct HeaderStart {
  off_t size; ///< of the whole header
  std::uint32_t firstTag;
};

/// Reads the start of the header at `offset`: magic, number of entries, size of the data, first tag. Nothing if the
/// file ends before.
std::optional<HeaderStart> headerStart(int file, off_t offset) {
  constexpr off_t introSize = 16;
  constexpr off_t entrySize = 16;
  std::array<std::uint32_t, 5> start{};
  if (!readAt(file, offset, start))
    return std::nullopt;
  return HeaderStart{introSize + entrySize * ntohl(start[2]) + ntohl(start[3]), ntohl(start[4])};
}

/// Besides the bytes of a header: its index takes at most 2 MiB, the longest list 8 MiB.
constexpr std::size_t memoryOfIndex = 16 * 1024 * 1024;

/// librpm aborts the process if it gets no memory.
bool isAvailable(std::size_t memory) {
  void* volatile taken = std::malloc(memory); // without volatile the compiler removes the calls
  std::free(taken);
  return taken != nullptr;
}

struct MainHeader {
  off_t offset;
  std::uint32_t firstTag;
};

/// Nothing if the file does not contain the headers that it claims, or there is no memory for them: librpm allocates
/// the claimed sizes, up to 64 MiB and 256 MiB, before it reads.
std::optional<MainHeader> findMainHeader(const OpenPackage& package) {
  constexpr off_t leadSize = 96;
  const int file = Fileno(package.file.get());
  const std::optional<HeaderStart> signatureHeader = headerStart(file, leadSize);
  if (!signatureHeader)
    return std::nullopt;
  const off_t begin = leadSize + (signatureHeader->size + 7) / 8 * 8;
  const std::optional<HeaderStart> header = headerStart(file, begin);
  if (!header || header->size > package.size - begin ||
      !isAvailable(static_cast<std::size_t>(signatureHeader->size + header->size) + memoryOfIndex))
    return std::nullopt;
  return MainHeader{begin, header->firstTag};
}

/// Whether librpm may convert the main header. rpmReadPackageFile() does that to a header without an immutable region,
/// as packages of RPM 3 have it, before anybody can check the values.
bool mayConvert(const FileHandle& file, const MainHeader& mainHeader) {
  if (mainHeader.firstTag == RPMTAG_HEADERIMMUTABLE)
    return true;
  const int descriptor = Fileno(file.get());
  if (lseek(descriptor, mainHeader.offset, SEEK_SET) != mainHeader.offset)
    return false;
  const HeaderHandle header = ownHeader(headerRead(file.get(), HEADER_MAGIC_YES));
  return header && SoundHeader(header).mayCompleteProvides() && lseek(descriptor, 0, SEEK_SET) == 0;
}

/// A transaction set that shares one keyring with all others. Otherwise each set would load the keyring from the RPM
/// database at its first use, which takes many times longer than reading a package.
TransactionSetHandle transactionSet() {
  static KeyringHandle keyring;
  TransactionSetHandle set = ownTransactionSet(rpmtsCreate());
  rpmtsSetRootDir(set.get(), nullptr);
  if (keyring)
    rpmtsSetKeyring(set.get(), keyring.get());
  else if (isRpmConfigured()) // without a configuration the keyring would be empty, and stay empty
    keyring = ownKeyring(rpmtsGetKeyring(set.get(), 1));
  return set;
}

/// Only with the result RPMRC_OK may the header be used.
rpmRC readHeader(const OpenPackage& package, const std::string& path, HeaderHandle& header) {
  const std::optional<MainHeader> mainHeader = findMainHeader(package);
  if (!mainHeader || !mayConvert(package.file, *mainHeader))
    return RPMRC_FAIL;
  const TransactionSetHandle set = transactionSet();
  Header found = nullptr;
  const rpmRC result = rpmReadPackageFile(set.get(), package.file.get(), path.c_str(), &found);
  // rpmReadPackageFile() may set the header even if it fails.
  header = ownHeader(found);
  return result;
}

bool beginsLikePackage(const FileHandle& file) {
  constexpr std::uint32_t leadMagic = 0xedabeedb;
  std::uint32_t magic = 0;
  return readAt(Fileno(file.get()), 0, magic) && ntohl(magic) == leadMagic;
}

/// The tags that identify a package. Their texts must not depend on the language, as translated texts do, and must not
/// be lists.
bool isIdentity(std::int32_t tag) {
  return tag == Tag::Name || tag == Tag::Version || tag == Tag::Release;
}

bool isOneString(rpmtd data) {
  return rpmtdType(data) == RPM_STRING_TYPE && rpmtdCount(data) == 1;
}

/// The bus disconnects a client that sends a message above its limit, 32 MiB by default. A longer name in one package
/// would fail all later packages.
bool isTooLong(std::int32_t tag, std::string_view text) {
  constexpr std::size_t longestName = 1024 * 1024;
  return tag == Tag::Name && text.size() > longestName;
}

} // namespace

Reader::Reader(const std::string& path) {
  ensureRpmConfig();
  OpenPackage package = openPackage(path);
  if (readHeader(package, path, m_header) != RPMRC_OK)
    throw readError();
  m_file = std::move(package.file);
  m_sound = std::make_shared<SoundHeader>(m_header);
}

Reader Reader::unverified(int descriptor, off_t offset) {
  struct stat status {};
  const std::optional<HeaderStart> start = headerStart(descriptor, offset);
  if (!start || fstat(descriptor, &status) != 0 || start->size > status.st_size - offset ||
      !isAvailable(static_cast<std::size_t>(start->size) + memoryOfIndex) ||
      lseek(descriptor, offset, SEEK_SET) != offset)
    throw readError();
  Reader reader;
  reader.m_file = ownFile(fdDup(descriptor));
  reader.m_header = reader.m_file ? ownHeader(headerRead(reader.m_file.get(), HEADER_MAGIC_YES)) : nullptr;
  if (!reader.m_header)
    throw readError();
  reader.m_sound = std::make_shared<SoundHeader>(reader.m_header);
  return reader;
}

Reader::Reader(Header header) : Reader(borrowHeader(header)) {}

Reader::Reader(HeaderHandle header) : m_header(std::move(header)), m_sound(std::make_shared<SoundHeader>(m_header)) {
  ensureRpmConfig();
}

/// Has no value, and so no text, if the tag is absent or librpm must not compute it.
TagDataHandle Reader::value(std::int32_t tag) const {
  const auto number = static_cast<rpm_tag_t>(tag);
  TagDataHandle data = ownTagData(rpmtdNew());
  if (isIdentity(tag)) {
    headerGet(m_header.get(), number, data.get(), HEADERGET_MINMEM | HEADERGET_RAW);
    if (!isOneString(data.get()))
      rpmtdFreeData(data.get());
  } else if (!SoundHeader::isComputed(tag)) {
    // Without HEADERGET_EXT: a later librpm may compute further tags, from values that SoundHeader does not check.
    headerGet(m_header.get(), number, data.get(), HEADERGET_MINMEM);
  } else if (m_sound->mayCompute(tag)) {
    headerGet(m_header.get(), number, data.get(), HEADERGET_EXT);
  }
  return data;
}

std::string Reader::tag(std::int32_t tag) const {
  const TagDataHandle data = value(tag);
  const char* text = rpmtdCount(data.get()) > 0 ? rpmtdGetString(data.get()) : nullptr;
  if (text == nullptr || isTooLong(tag, text))
    throw Error(ErrorCode::BadPackageFileFormat,
                "Couldn't retrieve rpm tag from package (type=" + std::to_string(tag) + ")");
  return text;
}

std::string Reader::tagOr(std::int32_t tag, const std::string& fallback) const {
  try {
    return this->tag(tag);
  } catch (const Error&) {
    return fallback;
  }
}

std::vector<std::string> Reader::texts(std::int32_t tag) const {
  const TagDataHandle data = value(tag);
  std::vector<std::string> found;
  if (rpmtdClass(data.get()) != RPM_STRING_CLASS)
    return found;
  while (rpmtdNext(data.get()) >= 0) {
    const char* text = rpmtdGetString(data.get());
    found.emplace_back(text != nullptr ? text : "");
  }
  return found;
}

FileSetHandle Reader::files() const {
  return m_sound->hasFiles() ? ownFileSet(rpmfilesNew(nullptr, m_header.get(), 0, RPMFI_KEEPHEADER)) : nullptr;
}

DependencySetHandle Reader::dependencies(std::int32_t kind) const {
  return m_sound->hasDependencies(kind) ? ownDependencySet(rpmdsNew(m_header.get(), static_cast<rpm_tag_t>(kind), 0))
                                        : nullptr;
}

Readability readabilityOf(const std::string& path) {
  ensureRpmConfig();
  try {
    const OpenPackage package = openPackage(path);
    if (!beginsLikePackage(package.file))
      return Readability::NotAPackage;
    HeaderHandle header;
    switch (readHeader(package, path, header)) {
    case RPMRC_OK:
      return Readability::Readable;
    case RPMRC_NOKEY:
    case RPMRC_NOTTRUSTED:
      return Readability::KeyMissing;
    default:
      return Readability::Damaged;
    }
  } catch (const Error&) {
    return Readability::NotAPackage;
  }
}

} // namespace Common::Rpm
