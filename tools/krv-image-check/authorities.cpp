// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/authorities.h"

#include "common/text/printable.h"
#include "tools/krv-image-check/escape.h"

#include <rpmsign-external/verification.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <regex>
#include <system_error>

#include <fcntl.h>

namespace ImageCheck {

namespace fs = std::filesystem;

namespace {

using Common::Posix::FileDescriptor;

constexpr const char* trustedFolder = "etc/krv/trusted-ca";
constexpr std::size_t longestFile = 1024 * 1024;

/// The name of a certificate or a revocation list as openssl-rehash(1) makes it.
bool isHashed(const std::string& name, const char* kind) {
  return std::regex_match(name, std::regex(std::string("[0-9a-f]{8}\\.") + kind + "[0-9]+"));
}

/// The regular files of the folder by their names. A file that cannot be read is empty: a revocation list that cannot
/// be read must not count as absent.
std::map<std::string, std::string> readFolder(const ImageTree& image, const std::optional<std::string>& given) {
  std::map<std::string, std::string> files;
  const FileDescriptor folder = given ? FileDescriptor(open(given->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
                                      : image.openDirectory(trustedFolder);
  if (!folder)
    return files;
  for (const std::string& name : namesIn(folder)) {
    const FileDescriptor found = given ? FileDescriptor(openat(folder.get(), name.c_str(), O_PATH | O_CLOEXEC))
                                       : image.find(fs::path(trustedFolder) / name);
    const FileDescriptor file = found ? openForReading(found) : FileDescriptor();
    files[name] = file ? contentOf(file, longestFile).value_or("") : "";
  }
  return files;
}

bool isCertificate(const std::string& content) {
  return content.find("-----BEGIN CERTIFICATE-----") != std::string::npos ||
         content.find("-----BEGIN TRUSTED CERTIFICATE-----") != std::string::npos;
}

/// Certificates that no hashed name leads to.
Findings findUnhashed(const std::map<std::string, std::string>& files) {
  Findings findings;
  for (const auto& [name, content] : files) {
    const auto isSameAndHashed = [&, &sought = content](const auto& file) {
      return isHashed(file.first, "") && file.second == sought;
    };
    if (isCertificate(content) && std::ranges::none_of(files, isSameAndHashed))
      findings.push_back({.id = "authorities-unhashed",
                          .entry = {},
                          .message = "no hashed name leads to the certificate " + Common::printable(name),
                          .about = name});
  }
  return findings;
}

} // namespace

Authorities copyAuthorities(const ImageTree& image, const std::optional<std::string>& given,
                            const fs::path& destination) {
  const std::map<std::string, std::string> files = readFolder(image, given);
  fs::create_directory(destination);
  for (const auto& [name, content] : files) {
    if (!isHashed(name, "") && !isHashed(name, "r"))
      continue;
    std::ofstream file(destination / name, std::ios::binary);
    file << content;
    file.close();
    if (!file)
      throw std::system_error(errno, std::generic_category(), (destination / name).string());
  }
  const bool areUsable = PackageSignatures::checkCaFolder(destination.c_str()) == PackageSignatures::CaFolder::Usable;
  Findings findings = findUnhashed(files);
  if (!areUsable && findings.empty())
    findings.push_back({.id = "authorities-missing",
                        .entry = {},
                        .message = "there is no certificate in " + Common::printable(given.value_or(trustedFolder))});
  return {.areUsable = areUsable, .findings = std::move(findings)};
}

} // namespace ImageCheck
