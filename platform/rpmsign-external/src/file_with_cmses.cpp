// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/certificate.h"
#include "platform/rpmsign-external/src/cms.h"
#include "platform/rpmsign-external/src/package_file.h"
#include "platform/rpmsign-external/src/rotation_chain.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <utility>

#include <fcntl.h>

namespace PackageSignatures {

struct FileWithCmses::Impl {
  FileDescriptor file;
  off_t contentOffset;
  std::vector<Cms> cmses;
};

namespace {

/// True if each message has a role and no two have the same: readers use only the first message of a role, so a second
/// one could replace or hide a signer.
bool haveRolesOfTheirOwn(const std::vector<Cms>& cmses) {
  std::set<Role> taken;
  for (const Cms& cms : cmses) {
    const std::optional<Role> role = roleOf(Cms::Impl::of(cms).data->certificate->own.get());
    if (!role || !taken.insert(*role).second)
      return false;
  }
  return true;
}

bool signerIsTrusted(const SignedData& data, const char* caPath) {
  return chainsToAuthority(*data.certificate, caPath, Dates::Checked) &&
         rotationHolds(readRotationChain(data), keyIdOf(data.certificate->own.get()), caPath);
}

/// SHA-256 of the content; nothing if it cannot be read or does not begin with an RPM header. The check uses the same
/// bytes as the digest, because another process may write to the file.
std::optional<Digest> digestOfContent(int file, off_t contentOffset) {
  const DigestContextPtr context(EVP_MD_CTX_new());
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
    return std::nullopt;
  bool isFirst = true;
  bool isGood = false;
  const bool read = forEachBlock(file, contentOffset, [&](std::string_view block) {
    if (std::exchange(isFirst, false))
      isGood = beginsAsHeader(block);
    isGood = isGood && EVP_DigestUpdate(context.get(), block.data(), block.size()) == 1;
  });
  Digest digest{};
  if (!read || !isGood || EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) != 1)
    return std::nullopt;
  return digest;
}

} // namespace

FileWithCmses::FileWithCmses(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

FileWithCmses::~FileWithCmses() = default;

std::unique_ptr<FileWithCmses> FileWithCmses::fromPath(const std::string& path) {
  const ErrorQueueCleaner cleaner;
  FileDescriptor file = openRegularFile(AT_FDCWD, path, Symlink::Followed);
  if (!file)
    return nullptr;
  const std::optional<PackageParts> parts = locateParts(file.get());
  if (!parts)
    return nullptr;
  std::optional<std::string> container = "";
  if (parts->container)
    container = readRange(file.get(), parts->container->offset, parts->container->size);
  if (!container)
    return nullptr;
  std::optional<std::vector<Cms>> cmses = parseContainer(*container);
  if (!cmses)
    return nullptr;
  return std::unique_ptr<FileWithCmses>(
      new FileWithCmses(std::make_unique<Impl>(Impl{std::move(file), parts->contentOffset, std::move(*cmses)})));
}

std::vector<Cms> FileWithCmses::cmses() const {
  return m_impl->cmses;
}

bool FileWithCmses::verifyCmses(const char* caPath) {
  const ErrorQueueCleaner cleaner;
  const std::vector<Cms>& cmses = m_impl->cmses;
  const auto dataOf = [](const Cms& cms) -> const SignedData& { return *Cms::Impl::of(cms).data; };
  // The content is read last, because it may be large.
  if (cmses.empty() || !haveRolesOfTheirOwn(cmses) ||
      !std::ranges::all_of(cmses, [&](const Cms& cms) { return signerIsTrusted(dataOf(cms), caPath); }))
    return false;
  const std::optional<Digest> digest = digestOfContent(m_impl->file.get(), m_impl->contentOffset);
  return digest && std::ranges::all_of(cmses, [&](const Cms& cms) { return signatureHolds(dataOf(cms), *digest); });
}

std::string defaultCaPath() {
  const char* const root = secure_getenv("KRV_ROOT_FS");
  // An empty root would give a path relative to the working directory.
  const bool isGiven = root != nullptr && *root != '\0';
  return std::filesystem::path(isGiven ? root : "/") / "etc/krv/trusted-ca";
}

} // namespace PackageSignatures
