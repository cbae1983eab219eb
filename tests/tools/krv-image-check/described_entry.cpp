// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/described_entry.h"

#include "acceptance/package_content.h"
#include "acceptance/package_length.h"
#include "acceptance/package_rules.h"
#include "common/error/error.h"
#include "common/posix/file_descriptor.h"
#include "common/rpm/machine.h"
#include "common/rpm/reader.h"
#include "common/signatures/package_cmses.h"

#include <fcntl.h>

namespace ImageCheckTest {

namespace {

using Common::Rpm::Reader;
namespace Tag = Common::Rpm::Tag;
using ImageCheck::Package;

void addFiles(const Reader& header, Package& package) {
  for (const auto& [path, file] : Acceptance::checkedFiles(header))
    package.files.push_back({.path = path,
                             .type = file.type,
                             .permissions = file.permissions,
                             .size = file.size,
                             .digest = file.digest,
                             .target = file.target,
                             .isGhost = file.isGhost});
}

void judge(const std::filesystem::path& path, const Reader& header, Package& package) {
  try {
    const Common::Posix::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    Acceptance::requireNothingBehindPayload(header, file.get(), std::filesystem::file_size(path), path.string());
    Common::readPackageCmses(path.string(), true);
    Acceptance::requireInstallable(header, Common::Rpm::Machine::current());
  } catch (const Common::Error& error) {
    package.refusal = static_cast<Common::ErrorCode>(error.code().value());
  }
  try {
    addFiles(header, package);
  } catch (const Common::Error& error) {
    package.contentRefusal = static_cast<Common::ErrorCode>(error.code().value());
  }
}

} // namespace

ImageCheck::Entry describedEntry(const std::string& name, const std::filesystem::path& path) {
  ImageCheck::Entry entry{.name = name, .package = std::nullopt};
  try {
    const Reader header(path.string());
    Package package{.entry = name,
                    .name = header.tag(Tag::Name),
                    .version = header.tag(Tag::Version) + "-" + header.tag(Tag::Release),
                    .architecture = header.tag(Tag::Architecture),
                    .sha256 = "",
                    .developer = {},
                    .refusal = {},
                    .files = {},
                    .fullVersion = header.tag(Tag::FullVersion)};
    package.developer = {.identity = Common::developerIdentity(Common::readPackageCmses(path.string(), false)),
                         .subject = "",
                         .issuer = "",
                         .notAfter = {},
                         .isTrusted = true};
    judge(path, header, package);
    entry.package = std::move(package);
  } catch (const Common::Error&) {
    return {.name = name, .package = std::nullopt};
  }
  return entry;
}

} // namespace ImageCheckTest
