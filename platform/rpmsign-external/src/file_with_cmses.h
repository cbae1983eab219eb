// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <rpmsign-external/package_signatures.h>

#include <memory>
#include <vector>

#include <sys/types.h>

namespace PackageSignatures {

struct FileWithCmses::Impl {
  FileDescriptor file;
  off_t contentOffset;
  std::vector<Cms> cmses;

  static const Impl& of(const FileWithCmses& file) { return *file.m_impl; }

  /// Reads the signatures of an open package. Returns null as FileWithCmses::fromPath() does.
  static std::unique_ptr<FileWithCmses> read(FileDescriptor file);
};

} // namespace PackageSignatures
