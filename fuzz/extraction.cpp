// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"
#include "common/rpm/archive.h"
#include "common/rpm/handles.h"
#include "fuzz/mutator.h"
#include "fuzz/rpm_process.h"
#include "fuzz/support.h"

#include <csignal>
#include <functional>

#include <sys/resource.h>

namespace {

using Common::Rpm::ArchiveEntry;
using Common::Rpm::ArchiveReader;
using Common::Rpm::HardLinkDescription;

/// Larger files are written to a scratch file, cut off at this size, because a payload of a few bytes may unpack to
/// gigabytes.
constexpr rlim_t outputLimit = 1024 * 1024;

void limitFiles() {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{.rlim_cur = outputLimit, .rlim_max = RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limit);
}

void requireUnderTarget(const std::filesystem::path& path) {
  Fuzz::require(path == path.lexically_normal() && *++path.begin() == "target",
                "the path of a file is under the target");
}

/// Handlers that read the content of every file, small ones into memory.
Common::Rpm::ExtractionHandlers handlers(ArchiveReader& archive, const std::string& scratch) {
  const auto files = Common::Rpm::ownFileSet(rpmfilesNew(nullptr, archive.header().get(), 0, RPMFI_KEEPHEADER));
  const auto see = [](const ArchiveEntry& entry) { requireUnderTarget(entry.path); };
  return {.directory = see,
          .regularFile = [&archive, files, scratch, see](const ArchiveEntry& entry) -> std::any {
            see(entry);
            if (rpmfilesFSize(files.get(), entry.index) > outputLimit)
              archive.writeContent(scratch);
            else
              archive.readContent();
            return entry.index;
          },
          .symbolicLink = see,
          .hardLinks =
              [](const HardLinkDescription& group) {
                Fuzz::require(std::any_cast<int>(group.value) == group.content.index, "a group has its own value");
                for (const HardLinkDescription::Link& link : group.links) {
                  requireUnderTarget(link.path);
                  Fuzz::require(link.index != group.content.index, "the other names have other indices");
                }
              }};
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximum,
                                               unsigned int seed) {
  return Fuzz::mutateInput(data, size, maximum, seed, Fuzz::mutatePackage);
}

/// Unpacks a package until the first error.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::prepareRpm();
  static const Fuzz::MemoryFile file;
  static const Fuzz::MemoryFile scratch;
  file.assign(Fuzz::begin(data, size));
  static const bool limited = (limitFiles(), true);
  static_cast<void>(limited);
  try {
    ArchiveReader archive = ArchiveReader::openForExtraction(file.path());
    Fuzz::accept();
    archive.extract("/target", handlers(archive, scratch.path()));
  } catch (const Common::Error&) { // a valid result
  }
  return 0;
}
