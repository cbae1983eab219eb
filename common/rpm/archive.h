// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"
#include "common/rpm/payload_stream.h"
#include "common/rpm/reader.h"

#include <any>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Common::Rpm {

/// One file of a package.
struct ArchiveEntry {
  /// Below the caller's target directory; the package's name for the file cannot lead out of it.
  std::filesystem::path path;
  std::filesystem::file_type type;
  /// The nine permission bits; set-id and sticky bits are dropped.
  std::filesystem::perms permissions;
  /// Whether the installed file gets an IMA signature. A configuration file without execute bits gets one only if RPM's
  /// macro %_ima_sign_config_files is a number other than 0.
  bool imaSigned;
  /// The position in the header's file list.
  int index;
  /// The target of a symlink as the package has it: it may be absolute or contain "..".
  std::string target;
};

/// A file with several names.
struct HardLinkDescription {
  struct Link {
    int index;
    std::filesystem::path path;
  };

  /// The entry that came with the content, and the value that the handler for regular files returned for it.
  ArchiveEntry content;
  std::any value;
  /// The other names, in header order.
  std::vector<Link> links;
};

/// Handlers for the entries of a payload. If an entry needs a handler that is not set, std::bad_function_call is
/// thrown. An exception of a handler ends the extraction and reaches the caller of extract().
///
/// Entry paths cannot lead out of the target by "..", but a payload may hold a symlink "a" to "/etc" and then a file
/// "a/passwd": a handler that writes must check where the parent directories of a path lead. The parent directories
/// need not be entries of the package.
///
/// A handler may start programs. If it forks a child that does not call exec, the child inherits the pipe of the
/// payload, and extract() returns only after the child has ended.
struct ExtractionHandlers {
  std::function<void(const ArchiveEntry&)> directory;
  /// Must call writeContent() or readContent() before it returns if it wants the content. Its result is passed to the
  /// hard-link handler.
  std::function<std::any(const ArchiveEntry&)> regularFile;
  std::function<void(const ArchiveEntry&)> symbolicLink;
  /// Called after all other entries, once for each file with several names.
  std::function<void(const HardLinkDescription&)> hardLinks;
};

/// A package file with its list of files, and with the payload if it was opened for extraction. Copies share all of it.
/// Only for the single thread of the program.
///
/// Checks: librpm detects a payload that ends early, contains a file that the header does not list, or lacks a file
/// that the header lists (%ghost files are never in a payload). It does not compare the content with the header's
/// digests; writeContent() and readContent() do so if the header has digests. extract() detects at its end a file that
/// is shorter than its signature header says and whose payload does not have the header's digest. Types, names,
/// permissions and symlink targets come only from the header; RPM's configuration decides whether the header must be
/// signed. No memory is allocated for a size that a header claims.
class ArchiveReader : public Reader {
public:
  /// Opens a package file like Reader(path), and its payload. Starts a thread that decompresses the payload ahead and
  /// ends with the last copy. Throws Common::Error: the errors of Reader(path); BadPackageFileFormat "Couldn't open rpm
  /// package for extraction", also if the list of files is broken, if sizes are impossible, and if the process may not
  /// have more descriptors or threads. If librpm does not know the compressor, only extract() fails.
  static ArchiveReader openForExtraction(const std::string& path);

  /// Opens a package file only for forEachFile(). Throws like openForExtraction().
  static ArchiveReader openFileList(const std::string& path);

  /// The same with the file and the header of `reader`. A header from the database must not outlive its iterator's
  /// step.
  static ArchiveReader openFileList(const Reader& reader);

  /// Calls `visitor` for each file of the header's list, in its order, including %ghost files. The payload is not read.
  /// Throws std::bad_function_call if `visitor` is empty.
  void forEachFile(const std::filesystem::path& target, const std::function<void(const ArchiveEntry&)>& visitor) const;

  /// Reads the payload once, from the beginning to the end, and passes its entries to `handlers` in payload order.
  /// Skips devices, FIFOs and sockets, each with the warning "Unexpected entry type in rpm package". Throws
  /// Common::Error: Internal "Couldn't read content from rpm package" if the payload is damaged or incomplete or was
  /// read before; files that the handlers have written stay. All signals are blocked while the payload is read, except
  /// those of SIGHUP, SIGINT, SIGQUIT, SIGTERM and SIGALRM that end the process (no handler, not blocked by the
  /// caller). No signal is blocked while a handler runs for an entry.
  void extract(const std::filesystem::path& target, const ExtractionHandlers& handlers);

  /// For the handler of regular files: creates or truncates `destination`, symlinks followed, and writes the content of
  /// the current file to it. Throws Common::Error: Filesystem "Couldn't open file for writing rpm content: " and
  /// "Couldn't write rpm package content to " with the path; Internal "Couldn't read content from rpm package", also if
  /// the content does not have the header's digest. A partly written file stays.
  void writeContent(const std::filesystem::path& destination);

  /// Like writeContent(), but returns the content. For small files.
  std::vector<std::byte> readContent();

private:
  explicit ArchiveReader(Reader package);

  void openPayload();
  bool isWhole(const std::vector<bool>& seen) const;
  void requireContent() const;
  void streamContent(const std::function<void(std::span<const std::byte>)>& sink);

  FileSetHandle m_files;
  std::shared_ptr<PayloadStream> m_stream;
  FileIteratorHandle m_payload; // reads from the stream, so it is released first
  bool m_isFileComplete = true;
  std::vector<std::byte> m_buffer;
};

} // namespace Common::Rpm
