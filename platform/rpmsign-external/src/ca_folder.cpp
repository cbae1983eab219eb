// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/package_file.h"

#include <rpmsign-external/verification.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>

namespace PackageSignatures {

namespace {

/// True for the name that openssl-rehash(1) gives to a certificate: eight hexadecimal digits, a dot, a number.
bool isHashedName(std::string_view name) {
  constexpr std::size_t hashSize = 8;
  const auto is = [](int (*kind)(int)) { return [kind](char c) { return kind(static_cast<unsigned char>(c)) != 0; }; };
  return name.size() > hashSize + 1 && name[hashSize] == '.' &&
         std::ranges::all_of(name.substr(0, hashSize), is(std::isxdigit)) &&
         std::ranges::all_of(name.substr(hashSize + 1), is(std::isdigit));
}

} // namespace

CaFolder checkCaFolder(const char* caPath) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(caPath, error);
  if (status.type() == std::filesystem::file_type::not_found)
    return CaFolder::Missing;
  if (!std::filesystem::exists(status))
    return CaFolder::Unreadable;
  if (!std::filesystem::is_directory(status))
    return CaFolder::NotADirectory;
  bool isHashed = false;
  std::filesystem::directory_iterator entry(caPath, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (!isHashedName(entry->path().filename().native()))
      continue;
    isHashed = true;
    if (openRegularFile(AT_FDCWD, entry->path(), Symlink::Followed))
      return CaFolder::Usable;
  }
  return error || isHashed ? CaFolder::Unreadable : CaFolder::NotRehashed;
}

} // namespace PackageSignatures
