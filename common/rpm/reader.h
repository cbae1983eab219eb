// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Common::Rpm {

class SoundHeader;

/// The tag numbers of rpm/rpmtag.h.
namespace Tag {
inline constexpr std::int32_t Name = 1000;
inline constexpr std::int32_t Version = 1001;
inline constexpr std::int32_t Release = 1002;
inline constexpr std::int32_t Architecture = 1022;
inline constexpr std::int32_t PayloadCompressor = 1125;
/// "[epoch:]version-release"; librpm computes it from the three tags.
inline constexpr std::int32_t FullVersion = 5013;
} // namespace Tag

/// The header of one package and, for a package file, the open file. Copies share both. Only for the single thread of
/// the program.
class Reader {
public:
  /// Opens the package file at `path`, symlinks followed, and reads its header. RPM's configuration decides whether
  /// signatures and digests must be valid. Only a non-empty regular file is opened, also if `path` is replaced
  /// meanwhile. Blocks for the disk, and while another process has a write lease on the file. Throws Common::Error:
  /// FileNotFound "Couldn't open rpm package"; BadPackageFileFormat "Couldn't read rpm package", also if the signing
  /// key is not imported or there is not enough memory for the headers.
  explicit Reader(const std::string& path);

  /// Reads the main header at `offset` of a package file that is open as `descriptor`, which stays the caller's; its
  /// position changes. Checks neither signatures nor digests, and opens no RPM database. Throws Common::Error,
  /// BadPackageFileFormat "Couldn't read rpm package".
  static Reader unverified(int descriptor, off_t offset);

  /// Wraps a header that an RPM database iterator owns. The reader must not outlive the iterator's step.
  explicit Reader(Header header);

  /// Shares the ownership of `header`.
  explicit Reader(HeaderHandle header);

  /// The text of one header tag; the first text of a list. Throws Common::Error, BadPackageFileFormat, if the tag is
  /// absent or has no string form (numbers, binary data), or if librpm computes it from values that do not fit
  /// together. Name, version and release must be one string without translations, and a name must not be longer than 1
  /// MiB.
  std::string tag(std::int32_t tag) const;

  /// Like tag(), but returns `fallback` instead of throwing.
  std::string tagOr(std::int32_t tag, const std::string& fallback) const;

  /// All texts of one header tag; a value without a text gives an empty string. Empty if tag() would throw.
  std::vector<std::string> texts(std::int32_t tag) const;

  HeaderHandle header() const { return m_header; }

  /// librpm's list of the package's files. Null if librpm rejects the values of the list or would crash on them.
  FileSetHandle files() const;

  /// librpm's list of the dependencies of one kind, for example RPMTAG_REQUIRENAME. Null if `kind` is another tag, and
  /// in the cases of files().
  DependencySetHandle dependencies(std::int32_t kind) const;

protected:
  /// The open file, positioned behind the header; null for a header from the database. Copies share the position.
  const FileHandle& file() const { return m_file; }

private:
  Reader() = default;
  TagDataHandle value(std::int32_t tag) const;

  FileHandle m_file;
  HeaderHandle m_header;
  std::shared_ptr<SoundHeader> m_sound;
};

/// Whether the tool can read a file as a package.
enum class Readability {
  Readable,
  NotAPackage, ///< it does not begin like a package, or it is empty or not a regular file
  Damaged,
  KeyMissing, ///< it is signed with an OpenPGP key that the RPM database does not have
};

/// The reason for which Reader(path) throws, or Readable if it does not.
[[nodiscard]] Readability readabilityOf(const std::string& path);

} // namespace Common::Rpm
