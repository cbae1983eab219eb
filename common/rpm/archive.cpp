// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/archive.h"

#include "common/error/error.h"
#include "common/posix/blocked_signals.h"
#include "common/rpm/file_entry.h"
#include "common/rpm/handles.h"
#include "driver/log/messages.h"

#include <rpm/rpmarchive.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmtag.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace Common::Rpm {

namespace {

constexpr std::size_t chunkSize = 128 * 1024;

Error openError() {
  return {ErrorCode::BadPackageFileFormat, "Couldn't open rpm package for extraction"};
}

Error contentError() {
  return {ErrorCode::Internal, "Couldn't read content from rpm package"};
}

/// librpm trusts these sizes. It allocates the claimed size for the target of a symlink and aborts the process if that
/// fails, and it writes past its buffers if a size is negative as an off_t.
void refuseImpossibleSizes(const FileSetHandle& files) {
  for (int index = 0; index < static_cast<int>(rpmfilesFC(files.get())); ++index) {
    const rpm_loff_t limit = S_ISLNK(rpmfilesFMode(files.get(), index)) ? PATH_MAX : std::numeric_limits<off_t>::max();
    if (rpmfilesFSize(files.get(), index) > limit)
      throw openError();
  }
}

// A signal handler can interrupt a read that waits for the decompression. zlib then returns that error at each further
// call, and librpm calls it in an endless loop. Signals that end the process stay unblocked.

int nextFile(rpmfi payload) {
  const Posix::BlockedSignals untilItIsThere = Posix::BlockedSignals::exceptFatalOnes();
  return rpmfiNext(payload);
}

ssize_t readContentOf(rpmfi payload, std::span<std::byte> buffer) {
  const Posix::BlockedSignals untilItIsThere = Posix::BlockedSignals::exceptFatalOnes();
  return rpmfiArchiveRead(payload, buffer.data(), buffer.size());
}

/// Whether the rest of the file has the payload digest of the header.
bool hasPayloadDigest(const FileHandle& file, const HeaderHandle& header) {
  const TagDataHandle expected = ownTagData(rpmtdNew());
  headerGet(header.get(), RPMTAG_PAYLOADDIGEST, expected.get(), HEADERGET_MINMEM);
  const auto algorithm = static_cast<int>(headerGetNumber(header.get(), RPMTAG_PAYLOADDIGESTALGO));
  const DigestHandle digest = ownDigest(rpmDigestInit(algorithm, RPMDIGEST_NONE));
  const char* digits = rpmtdGetString(expected.get());
  if (digits == nullptr || !digest)
    return false;
  std::vector<std::byte> buffer(chunkSize);
  ssize_t count;
  for (off_t offset = Ftell(file.get()); (count = pread(Fileno(file.get()), buffer.data(), buffer.size(), offset)) > 0;
       offset += count)
    rpmDigestUpdate(digest.get(), buffer.data(), static_cast<std::size_t>(count));
  void* found = nullptr;
  rpmDigestFinal(rpmDigestDup(digest.get()), &found, nullptr, 1);
  const std::unique_ptr<void, decltype(&std::free)> owned(found, &std::free);
  return found != nullptr && std::string_view(static_cast<const char*>(found)) == digits;
}

/// Whether the file is as long as its signature header says, which has the size of everything that follows it. Only
/// this check finds a compressed stream without its end, because the archive in it may be complete. librpm ignores that
/// size, so a size that is too large is accepted if the payload has the header's digest. `file` must be positioned at
/// the payload.
bool isComplete(const FileHandle& file, const HeaderHandle& header) {
  const TagDataHandle mainHeader = ownTagData(rpmtdNew());
  const std::uint64_t promised = headerGetNumber(header.get(), RPMTAG_LONGSIGSIZE);
  struct stat status;
  if (promised == 0 || headerGet(header.get(), RPMTAG_HEADERIMMUTABLE, mainHeader.get(), HEADERGET_DEFAULT) == 0 ||
      fstat(Fileno(file.get()), &status) != 0)
    return true; // there is no size to compare with
  const off_t payload = status.st_size - Ftell(file.get());
  return sizeof(rpm_header_magic) + mainHeader->count + static_cast<std::uint64_t>(payload) >= promised ||
         hasPayloadDigest(file, header);
}

std::filesystem::path underTarget(const std::filesystem::path& target, const char* name) {
  const std::string below = nameBelowRoot(name);
  if (below.empty())
    return target;
  std::string path = target.native();
  if (!path.empty() && path.back() != '/')
    path += '/';
  return path += below;
}

bool isImaSigned(rpmfi file) {
  return (rpmfiFFlags(file) & RPMFILE_CONFIG) == 0 || (rpmfiFMode(file) & 0111) != 0 ||
         rpmExpandNumeric("%{?_ima_sign_config_files}") != 0;
}

/// The current entry of the iterator.
ArchiveEntry describe(rpmfi file, const std::filesystem::path& target) {
  const rpm_mode_t mode = rpmfiFMode(file);
  ArchiveEntry entry{.path = underTarget(target, rpmfiFN(file)),
                     .type = typeOf(mode),
                     .permissions = static_cast<std::filesystem::perms>(mode & 0777),
                     .imaSigned = isImaSigned(file),
                     .index = rpmfiFX(file),
                     .target = {}};
  const char* link = rpmfiFLink(file);
  if (entry.type == std::filesystem::file_type::symlink && link != nullptr)
    entry.target = link;
  return entry;
}

/// The other names of the iterator's current file. The position of the iterator is restored, because its next step
/// starts there.
std::vector<HardLinkDescription::Link> otherNames(rpmfi file, const std::filesystem::path& target) {
  const int* indexes = nullptr;
  const std::uint32_t count = rpmfiFLinks(file, &indexes);
  const int current = rpmfiFX(file);
  std::vector<HardLinkDescription::Link> links;
  for (std::uint32_t i = 0; indexes != nullptr && i < count; ++i) {
    if (indexes[i] == current)
      continue;
    rpmfiSetFX(file, indexes[i]);
    links.push_back({.index = indexes[i], .path = underTarget(target, rpmfiFN(file))});
  }
  rpmfiSetFX(file, current);
  return links;
}

/// Calls the handler for one entry of a payload. Hard links are collected in `groups`, because their handler runs last.
void handOut(rpmfi file, const std::filesystem::path& target, const ExtractionHandlers& handlers,
             std::vector<HardLinkDescription>& groups) {
  const ArchiveEntry entry = describe(file, target);
  switch (entry.type) {
  case std::filesystem::file_type::directory:
    return handlers.directory(entry);
  case std::filesystem::file_type::symlink:
    return handlers.symbolicLink(entry);
  case std::filesystem::file_type::regular: {
    if (rpmfiArchiveHasContent(file) == 0)
      return;
    std::any value = handlers.regularFile(entry);
    if (rpmfiFLinks(file, nullptr) > 1)
      groups.push_back({.content = entry, .value = std::move(value), .links = otherNames(file, target)});
    return;
  }
  default:
    logLine<Message::UnexpectedEntryType>();
  }
}

/// Computes the digest of the content that is read, and compares it with the digest in the header.
class ContentDigest {
public:
  explicit ContentDigest(rpmfi file) {
    int algorithm = 0;
    m_expected = rpmfiFDigest(file, &algorithm, &m_size);
    if (m_expected != nullptr)
      m_digest = ownDigest(rpmDigestInit(algorithm, RPMDIGEST_NONE));
  }

  void add(std::span<const std::byte> bytes) { rpmDigestUpdate(m_digest.get(), bytes.data(), bytes.size()); }

  /// True if the header has no digest.
  bool isAsExpected() const {
    if (m_expected == nullptr)
      return true;
    void* found = nullptr;
    rpmDigestFinal(rpmDigestDup(m_digest.get()), &found, nullptr, 0);
    const std::unique_ptr<void, decltype(&std::free)> owned(found, &std::free);
    return found != nullptr && std::memcmp(found, m_expected, m_size) == 0;
  }

private:
  const unsigned char* m_expected;
  std::size_t m_size = 0;
  DigestHandle m_digest;
};

} // namespace

ArchiveReader::ArchiveReader(Reader package) : Reader(std::move(package)), m_files(files()) {
  if (!m_files)
    throw openError();
}

ArchiveReader ArchiveReader::openForExtraction(const std::string& path) {
  ArchiveReader archive{Reader(path)};
  archive.openPayload();
  return archive;
}

ArchiveReader ArchiveReader::openFileList(const std::string& path) {
  return openFileList(Reader(path));
}

ArchiveReader ArchiveReader::openFileList(const Reader& reader) {
  return ArchiveReader(reader);
}

void ArchiveReader::openPayload() {
  refuseImpossibleSizes(m_files);
  m_isFileComplete = isComplete(file(), header());
  try {
    m_stream = std::make_shared<PayloadStream>(file(), tagOr(Tag::PayloadCompressor, "gzip"));
  } catch (const std::system_error&) {
    throw openError();
  }
  m_payload =
      ownFileIterator(rpmfiNewArchiveReader(m_stream->reader(), m_files.get(), RPMFI_ITER_READ_ARCHIVE_CONTENT_FIRST));
  if (!m_payload)
    throw openError();
}

void ArchiveReader::forEachFile(const std::filesystem::path& target,
                                const std::function<void(const ArchiveEntry&)>& visitor) const {
  const FileIteratorHandle files = ownFileIterator(rpmfilesIter(m_files.get(), RPMFI_ITER_FWD));
  while (rpmfiNext(files.get()) >= 0)
    visitor(describe(files.get(), target));
}

void ArchiveReader::extract(const std::filesystem::path& target, const ExtractionHandlers& handlers) {
  // Without a payload librpm would return the end of the archive.
  if (!m_payload)
    throw contentError();
  std::vector<HardLinkDescription> groups;
  std::vector<bool> seen(rpmfilesFC(m_files.get()));
  int index;
  while ((index = nextFile(m_payload.get())) >= 0) {
    seen.at(static_cast<std::size_t>(index)) = true;
    handOut(m_payload.get(), target, handlers, groups);
  }
  if (index != RPMERR_ITER_END || !isWhole(seen))
    throw contentError();
  for (const HardLinkDescription& group : groups)
    handlers.hardLinks(group);
}

/// librpm itself looks for missing files. But if the members of a hard-link group are out of order, it counts files as
/// found that it has skipped.
bool ArchiveReader::isWhole(const std::vector<bool>& seen) const {
  for (std::size_t index = 0; index < seen.size(); ++index) {
    if (!seen[index] && (rpmfilesFFlags(m_files.get(), static_cast<int>(index)) & RPMFILE_GHOST) == 0)
      return false;
  }
  return m_isFileComplete;
}

void ArchiveReader::requireContent() const {
  if (rpmfiArchiveHasContent(m_payload.get()) == 0)
    throw contentError();
}

void ArchiveReader::streamContent(const std::function<void(std::span<const std::byte>)>& sink) {
  m_buffer.resize(chunkSize);
  ContentDigest digest(m_payload.get());
  const rpm_loff_t size = rpmfiFSize(m_payload.get());
  for (rpm_loff_t remaining = size; remaining > 0;) {
    const auto wanted = static_cast<std::size_t>(std::min<rpm_loff_t>(remaining, m_buffer.size()));
    const ssize_t count = readContentOf(m_payload.get(), std::span(m_buffer).first(wanted));
    if (count <= 0)
      throw contentError();
    const std::span<const std::byte> chunk(m_buffer.data(), static_cast<std::size_t>(count));
    digest.add(chunk);
    sink(chunk);
    remaining -= chunk.size();
  }
  // Old packages have zeros for the digest of an empty file.
  if (size > 0 && !digest.isAsExpected())
    throw contentError();
}

void ArchiveReader::writeContent(const std::filesystem::path& destination) {
  requireContent();
  std::ofstream file;
  file.rdbuf()->pubsetbuf(nullptr, 0); // the chunks are as large as a buffer
  file.open(destination, std::ios::out | std::ios::binary);
  if (!file)
    throw Error(ErrorCode::Filesystem, "Couldn't open file for writing rpm content: " + destination.string());
  const auto check = [&] {
    if (!file)
      throw Error(ErrorCode::Filesystem, "Couldn't write rpm package content to " + destination.string());
  };
  streamContent([&](std::span<const std::byte> chunk) {
    file.write(reinterpret_cast<const char*>(chunk.data()), static_cast<std::streamsize>(chunk.size()));
    check();
  });
  file.close(); // a full disk may be reported only here
  check();
}

void ArchiveReader::verifyContent() {
  requireContent();
  streamContent([](std::span<const std::byte>) {});
}

std::vector<std::byte> ArchiveReader::readContent() {
  requireContent();
  std::vector<std::byte> content;
  streamContent([&](std::span<const std::byte> chunk) { content.insert(content.end(), chunk.begin(), chunk.end()); });
  return content;
}

} // namespace Common::Rpm
