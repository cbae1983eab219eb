// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/file_with_cmses.h"

#include "platform/rpmsign-external/src/cms.h"
#include "platform/rpmsign-external/src/examination.h"
#include "platform/rpmsign-external/src/package_file.h"

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <utility>

#include <fcntl.h>

namespace PackageSignatures {

FileWithCmses::FileWithCmses(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

FileWithCmses::~FileWithCmses() = default;

std::unique_ptr<FileWithCmses> FileWithCmses::Impl::read(FileDescriptor file) {
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

std::unique_ptr<FileWithCmses> FileWithCmses::fromPath(const std::string& path) {
  const ErrorQueueCleaner cleaner;
  FileDescriptor file = openRegularFile(AT_FDCWD, path, Symlink::Followed);
  return file ? Impl::read(std::move(file)) : nullptr;
}

std::vector<Cms> FileWithCmses::cmses() const {
  return m_impl->cmses;
}

bool FileWithCmses::verifyCmses(const char* caPath) {
  const ErrorQueueCleaner cleaner;
  return examine(*m_impl, {.caPath = caPath}, Extent::FirstProblem).isGood();
}

std::string defaultCaPath() {
  const char* const root = secure_getenv("KRV_ROOT_FS");
  // An empty root would give a path relative to the working directory.
  const bool isGiven = root != nullptr && *root != '\0';
  return std::filesystem::path(isGiven ? root : "/") / "etc/krv/trusted-ca";
}

} // namespace PackageSignatures
