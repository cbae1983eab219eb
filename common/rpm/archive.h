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
  /// Under the caller's target directory. The package's name for the file cannot climb out of it.
  std::filesystem::path path;
  std::filesystem::file_type type;
  /// The nine permission bits; set-id and sticky bits are dropped.
  std::filesystem::perms permissions;
  /// Whether the installed file is to carry an IMA signature: configuration files without an execute bit do so only
  /// when RPM's macro %_ima_sign_config_files is a number other than 0.
  bool imaSigned;
  /// The position in the header's file list.
  int index;
  /// What a symbolic link points to, as the package has it: it may be absolute or climb.
  std::string target;
};

/// The names of one file.
struct HardLinkDescription {
  struct Link {
    int index;
    std::filesystem::path path;
  };

  /// The name that came with the content, and what the handler for regular files returned for it.
  ArchiveEntry content;
  std::any value;
  /// The other names, in header order.
  std::vector<Link> links;
};

/// What to do with the entries of a payload. A handler that is needed but not set raises std::bad_function_call; what
/// a handler throws ends the extraction and goes on to its caller.
///
/// Payload names cannot climb out of the target, but a payload may hold a symbolic link "a" to "/etc" and then a file
/// "a/passwd": handlers that write have to look where the parent directories of a path lead. The parent directories
/// need not be entries of the package.
///
/// A handler may start programs. A child process that it forks and that runs no other program keeps the pipe of the
/// payload open: extract() ends after the child only.
struct ExtractionHandlers {
  std::function<void(const ArchiveEntry&)> directory;
  /// Has to call writeContent() or readContent() before it returns if it wants the content. What it returns is kept for
  /// the hard-link handler.
  std::function<std::any(const ArchiveEntry&)> regularFile;
  std::function<void(const ArchiveEntry&)> symbolicLink;
  /// Called after all other entries, once for each file with several names.
  std::function<void(const HardLinkDescription&)> hardLinks;
};

/// A package file and its list of files, and the payload when it was opened for that. Copies share all of it. For the
/// single thread of the program only.
///
/// What is checked: librpm finds a payload that ends early, holds a file that the header does not list or leaves out
/// one that it lists (%ghost files are never in a payload). It does not compare content with the header's digests;
/// writeContent() and readContent() do, where the header has them. A file that is shorter than its signature header
/// says, with a payload that has not the header's digest, is found at the end of extract(). Types, names, permissions
/// and link targets are the header's alone; whether that can be trusted is up to RPM's configuration. Nothing is
/// allocated because a header claims a size.
class ArchiveReader : public Reader {
public:
  /// Opens a package file as Reader(path) does, and its payload. Throws Common::Error: what Reader(path) throws;
  /// BadPackageFileFormat "Couldn't open rpm package for extraction", also for a broken list of files or sizes that
  /// cannot be, and when the process may have no more descriptors or threads: one decompresses the payload ahead, and
  /// ends with the last copy. A compressor that librpm does not know shows with the first entry only.
  static ArchiveReader openForExtraction(const std::string& path);

  /// Opens a package file for forEachFile() alone. Throws as openForExtraction() does.
  static ArchiveReader openFileList(const std::string& path);

  /// As above, with the file and the header of `reader`. For a header from the database the reader's lifetime holds.
  static ArchiveReader openFileList(const Reader& reader);

  /// Calls `visitor` for each file of the header's list, in its order, %ghost files included; the payload is left
  /// alone. An empty visitor raises std::bad_function_call.
  void forEachFile(const std::filesystem::path& target, const std::function<void(const ArchiveEntry&)>& visitor) const;

  /// Walks the payload, once, from its beginning to its end, and hands the entries to `handlers` in payload order.
  /// Devices, FIFOs and sockets are left out, each with the warning "Unexpected entry type in rpm package". Throws
  /// Common::Error: Internal "Couldn't read content from rpm package" for a payload that is damaged or incomplete, or
  /// has been walked already; what the handlers have made by then stays. While the payload is read, signals
  /// wait, except SIGHUP, SIGINT, SIGQUIT, SIGTERM and SIGALRM as long as they end the process (no handler, not blocked
  /// by the caller); while a handler of an entry runs, none of them does.
  void extract(const std::filesystem::path& target, const ExtractionHandlers& handlers);

  /// For the handler of regular files: writes the current file's content to `destination`, links followed, which is
  /// made or emptied first. Throws Common::Error: Filesystem "Couldn't open file for writing rpm content: " and
  /// "Couldn't write rpm package content to " with the path; Internal "Couldn't read content from rpm package" also
  /// when the content has not the header's digest. What has been written by then stays.
  void writeContent(const std::filesystem::path& destination);

  /// As writeContent(), into memory: for small files.
  std::vector<std::byte> readContent();

private:
  explicit ArchiveReader(Reader package);

  void openPayload();
  bool isWhole(const std::vector<bool>& seen) const;
  void requireContent() const;
  void streamContent(const std::function<void(std::span<const std::byte>)>& sink);

  FileSetHandle m_files;
  std::shared_ptr<PayloadStream> m_stream;
  FileIteratorHandle m_payload; // reads from the stream, and goes before it
  bool m_isFileComplete = true;
  std::vector<std::byte> m_buffer;
};

} // namespace Common::Rpm
