// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Common::Rpm {

class SoundHeader;

/// Header tags by number, as rpm/rpmtag.h has them.
namespace Tag {
inline constexpr std::int32_t Name = 1000;
inline constexpr std::int32_t Version = 1001;
inline constexpr std::int32_t Release = 1002;
inline constexpr std::int32_t Architecture = 1022;
inline constexpr std::int32_t PayloadCompressor = 1125;
/// "[epoch:]version-release"; librpm makes it from the three.
inline constexpr std::int32_t FullVersion = 5013;
} // namespace Tag

/// The header of one package and, for a package file, the open file. Copies share both. For the single thread of the
/// program only.
class Reader {
public:
  /// Opens the package file at `path`, links followed, and reads its header; whether signatures and digests have to
  /// hold is up to RPM's configuration. Only a regular file that is not empty is opened and read, whatever takes its
  /// place meanwhile. Blocks for the disk, and while another process has a write lease on the file. Throws
  /// Common::Error: FileNotFound "Couldn't open rpm package"; BadPackageFileFormat "Couldn't read rpm package", also
  /// for a package whose signing key is not imported and for headers for which there is not enough memory.
  explicit Reader(const std::string& path);

  /// Wraps a header that an RPM database iterator owns; the reader must not outlive the iterator's step.
  explicit Reader(Header header);

  /// Wraps a header that belongs to whoever has a handle of it.
  explicit Reader(HeaderHandle header);

  /// The text of one header tag; of a list of strings it is the first. Throws Common::Error with BadPackageFileFormat
  /// when the tag is absent or has no string form (numbers, binary data), and when librpm computes it from values that
  /// do not fit each other. Name, version and release have to be one string, without translations, and a name has at
  /// most 1 MiB.
  std::string tag(std::int32_t tag) const;

  /// As tag(), with `fallback` in place of the error.
  std::string tagOr(std::int32_t tag, const std::string& fallback) const;

  /// All texts of one header tag, with an empty one for a value without a text. Empty where tag() would throw.
  std::vector<std::string> texts(std::int32_t tag) const;

  HeaderHandle header() const { return m_header; }

  /// librpm's list of the package's files; null when librpm refuses the values that it makes the list of, or would
  /// crash on them.
  FileSetHandle files() const;

  /// librpm's list of the dependencies of one kind, for example RPMTAG_REQUIRENAME; null for another tag, and as
  /// files().
  DependencySetHandle dependencies(std::int32_t kind) const;

protected:
  /// The open file, behind the header; null for a header from the database. Copies share its position.
  const FileHandle& file() const { return m_file; }

private:
  TagDataHandle value(std::int32_t tag) const;

  FileHandle m_file;
  HeaderHandle m_header;
  std::shared_ptr<SoundHeader> m_sound;
};

} // namespace Common::Rpm
