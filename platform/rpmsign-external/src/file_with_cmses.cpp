// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/certificate.h"
#include "platform/rpmsign-external/src/cms.h"
#include "platform/rpmsign-external/src/package_file.h"

#include <cstdlib>
#include <filesystem>
#include <utility>

namespace PackageSignatures {

struct FileWithCmses::Impl {
  FileDescriptor file;
  off_t contentOffset;
  std::vector<Cms> cmses;
};

namespace {

bool cmsHolds(const Cms& cms, int file, off_t contentOffset, const char* caPath) {
  const SignedData& data = *Cms::Impl::of(cms).data;
  if (!roleOf(data.certificate->own.get()) || !chainsToAuthority(*data.certificate, caPath, Dates::Checked) ||
      !rotationHolds(readRotationChain(data), keyIdOf(data.certificate->own.get()), caPath))
    return false;
  const BioPtr content(BIO_new_fd(file, BIO_NOCLOSE));
  // OpenSSL takes a read error for the end of the content; the digest is then wrong.
  return content && lseek(file, contentOffset, SEEK_SET) == contentOffset && signatureHolds(data, content.get());
}

} // namespace

FileWithCmses::FileWithCmses(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

FileWithCmses::~FileWithCmses() = default;

std::unique_ptr<FileWithCmses> FileWithCmses::fromPath(const std::string& path) {
  const ErrorQueueCleaner cleaner;
  FileDescriptor file = openRegularFile(path);
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
  for (const Cms& cms : m_impl->cmses) {
    if (!cmsHolds(cms, m_impl->file.get(), m_impl->contentOffset, caPath))
      return false;
  }
  return !m_impl->cmses.empty();
}

std::string defaultCaPath() {
  const char* const root = secure_getenv("KRV_ROOT_FS");
  return std::filesystem::path(root == nullptr ? "/" : root) / "etc/krv/trusted-ca";
}

} // namespace PackageSignatures
