// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/installed_files.h"

#include "acceptance/file_list.h"
#include "common/rpm/file_entry.h"

#include <utility>

namespace Sandbox {

Acceptance::PackagedFiles filesOf(const std::vector<Common::Rpm::Reader>& entries) {
  Acceptance::PackagedFiles files;
  for (const Common::Rpm::Reader& entry : entries) {
    for (Acceptance::PackagedFile& file : Acceptance::fileList(entry)) {
      const std::filesystem::path path = Common::Rpm::nameBelowRoot(file.name);
      if (!path.empty())
        files.emplace(path, std::move(file));
    }
  }
  return files;
}

} // namespace Sandbox
