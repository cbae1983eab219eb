// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/package_checks.h"

#include "acceptance/package_content.h"
#include "acceptance/package_header.h"
#include "acceptance/package_rules.h"
#include "acceptance/reserved_paths.h"
#include "common/error/error.h"
#include "common/rpm/archive.h"
#include "common/rpm/version.h"
#include "common/text/printable.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/owned_files.h"

#include <algorithm>
#include <any>
#include <array>
#include <functional>

namespace ImageCheck {

namespace fs = std::filesystem;
namespace Tag = Common::Rpm::Tag;

namespace {

using Acceptance::PackagedFile;
using Acceptance::PackagedFiles;
using Common::Error;
using Common::ErrorCode;
using Common::Rpm::Reader;

std::string text(const char* before, const std::string& value) {
  return before + Common::printable(value.substr(0, 200));
}

class HeaderChecks {
public:
  HeaderChecks(const PackageContext& context, const Reader& reader, Package& package, EntryReport& report)
      : m_context(context), m_reader(reader), m_package(package), m_report(report) {}

  void run() {
    checkIdentity();
    checkArchitecture();
    obey("header-damaged", m_package.refusal, [&] { Acceptance::requireNoInstallationTags(m_reader); });
    if (Acceptance::isSourcePackage(m_reader)) {
      // Its files are sources without a path, so what is said about them would be wrong.
      add("source-package", "the file is a source package");
      m_package.contentRefusal = ErrorCode::BadPackageContent;
      return;
    }
    checkFiles();
    checkCompressor();
    checkScripts();
  }

private:
  void add(const char* id, const std::string& message, const std::string& about = "") {
    m_report.findings.push_back({.id = id, .entry = m_report.entry.name, .message = message, .about = about});
  }

  /// Adds a finding if the service's rule throws. The first error in `refusal` stays, because the service stops there.
  void obey(const char* id, std::optional<ErrorCode>& refusal, const std::function<void()>& rule,
            const std::string& about = "") {
    try {
      rule();
    } catch (const Error& error) {
      add(id, Common::printable(error.what()), about);
      refusal = refusal.value_or(static_cast<ErrorCode>(error.code().value()));
    }
  }

  void checkIdentity() {
    obey("identity-missing", m_package.refusal, [&] { Acceptance::requireUsableName(m_package.name); });
    using Common::Rpm::VersionComparison;
    if (Common::Rpm::compareVersions(m_package.version, "1-1") == VersionComparison::Unparsable) {
      add("version-unparsable", text("RPM cannot compare the version ", m_package.version));
      m_package.refusal = m_package.refusal.value_or(ErrorCode::BadPackageVersion);
    } else {
      obey("identity-missing", m_package.refusal, [&] { Acceptance::requireVersion(m_reader); });
    }
    if (m_package.fullVersion != m_package.version && !m_package.fullVersion.starts_with("0:"))
      add("epoch-ignored", text("the version is ", m_package.fullVersion));
  }

  void checkArchitecture() {
    if (m_context.machine)
      obey("architecture-foreign", m_package.refusal,
           [&] { Acceptance::requireArchitecture(m_reader, *m_context.machine); });
  }

  void checkFiles() {
    PackagedFiles files;
    obey("path-reserved", m_package.contentRefusal, [&] { files = Acceptance::checkedFiles(m_reader); });
    for (const auto& [path, file] : files) {
      const auto rule = [&place = path, type = file.type] { Acceptance::requireUnreserved(place, type); };
      obey("path-reserved", m_package.contentRefusal, rule, path.native());
      checkRights(path, file);
      m_package.files.push_back(ownedFile(path, file));
      if (file.type == fs::file_type::regular && !file.isGhost && !file.isFurtherName)
        m_report.installedSize += file.size;
    }
  }

  void checkRights(const fs::path& path, const PackagedFile& file) {
    const auto hasBit = [&](fs::perms bit) { return (file.permissions & bit) != fs::perms::none; };
    if (file.type == fs::file_type::regular && hasBit(fs::perms::set_uid))
      add("privileged-file", text("set-user-ID: /", path.native()), path.native());
    if (file.type == fs::file_type::regular && hasBit(fs::perms::set_gid))
      add("privileged-file", text("set-group-ID: /", path.native()), "group " + path.native());
    if (!file.capabilities.empty())
      add("privileged-file", text("capabilities ", file.capabilities) + text(": /", path.native()),
          "capabilities " + path.native());
  }

  void checkCompressor() {
    static constexpr auto known = std::to_array<std::string_view>({"gzip", "bzip2", "xz", "lzma", "zstd"});
    const std::string compressor = m_reader.tagOr(Tag::PayloadCompressor, "gzip");
    if (std::ranges::find(known, compressor) != known.end())
      return;
    add("payload-compressor-unknown", text("the payload is compressed with ", compressor));
    m_package.contentRefusal = m_package.contentRefusal.value_or(ErrorCode::Internal);
  }

  void checkScripts() {
    bool isComplete = true;
    for (const std::string& interpreter : Acceptance::scriptInterpreters(m_reader)) {
      const bool isOwn = std::ranges::find(m_package.files, fs::path(interpreter).relative_path(), &OwnedFile::path) !=
                         m_package.files.end();
      if (isOwn || m_context.image.status(interpreter))
        continue;
      add("scriptlet-interpreter-missing", text("a scriptlet needs ", interpreter), interpreter);
      isComplete = false;
    }
    if (isComplete && Acceptance::hasScripts(m_reader))
      add("scriptlet-present", "the package has scriptlets or triggers");
  }

  const PackageContext& m_context;
  const Reader& m_reader;
  Package& m_package;
  EntryReport& m_report;
};

} // namespace

void checkHeader(const PackageContext& context, const Reader& reader, Package& package, EntryReport& report) {
  HeaderChecks(context, reader, package, report).run();
}

void checkPayload(const std::string& path, EntryReport& report) {
  using Common::Rpm::ArchiveEntry;
  try {
    auto archive = Common::Rpm::ArchiveReader::openForExtraction(path);
    archive.extract("", {.directory = [](const ArchiveEntry&) {},
                         .regularFile =
                             [&](const ArchiveEntry&) {
                               archive.verifyContent();
                               return std::any();
                             },
                         .symbolicLink = [](const ArchiveEntry&) {},
                         .hardLinks = [](const Common::Rpm::HardLinkDescription&) {}});
  } catch (const Error& error) {
    std::optional<ErrorCode>& refusal = report.entry.package->contentRefusal;
    refusal = refusal.value_or(static_cast<ErrorCode>(error.code().value()));
    report.findings.push_back({.id = "payload-damaged",
                               .entry = report.entry.name,
                               .message = "the payload cannot be unpacked, or a file does not have its digest"});
  }
}

} // namespace ImageCheck
