// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/read_package.h"

#include "acceptance/package_length.h"
#include "common/error/error.h"
#include "common/rpm/reader.h"
#include "common/rpm/sha256.h"
#include "driver/package_facts.h"
#include "tools/krv-image-check/entry_checks.h"
#include "tools/krv-image-check/package_checks.h"
#include "tools/krv-image-check/signature_checks.h"

#include <algorithm>
#include <array>
#include <utility>

#include <unistd.h>

namespace ImageCheck {

namespace Tag = Common::Rpm::Tag;

namespace {

using Common::Posix::FileDescriptor;
using Common::Rpm::Readability;
using Common::Rpm::Reader;

void add(EntryReport& report, const char* id, const std::string& message) {
  report.findings.push_back({.id = id, .entry = report.entry.name, .message = message});
}

bool isReadable(const std::string& path, EntryReport& report) {
  switch (Common::Rpm::readabilityOf(path)) {
  case Readability::Readable:
    return true;
  case Readability::NotAPackage:
    add(report, "entry-not-a-package", "the file does not begin like an RPM package");
    break;
  case Readability::Damaged:
    add(report, "header-damaged", "RPM cannot read the headers of the package");
    break;
  case Readability::KeyMissing:
    add(report, "openpgp-key-missing", "the package has an OpenPGP signature of a key that the image does not trust");
    break;
  }
  return false;
}

std::uint64_t sizeOf(const FileDescriptor& file) {
  struct stat status {};
  return fstat(file.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

/// Replaces what the signatures say about a file that is cut: they are broken because of that.
void checkLength(const Reader& reader, const FileDescriptor& file, EntryReport& report, SignatureReport& signatures) {
  const std::uint64_t size = sizeOf(file);
  const auto isBroken = [](const Finding& finding) { return finding.id == "signature-broken"; };
  try {
    Acceptance::requireNothingBehindPayload(reader, file.get(), size, report.entry.name);
  } catch (const Common::Error& error) {
    add(report, "header-damaged", "the file is longer than its headers say");
    std::erase_if(signatures.findings, isBroken);
    signatures.refusal = static_cast<Common::ErrorCode>(error.code().value());
  }
  if (Acceptance::isCut(reader, file.get(), size) && std::erase_if(signatures.findings, isBroken) > 0)
    add(report, "header-damaged", "the file is shorter than its headers say");
}

std::string digestOf(const FileDescriptor& file) {
  Common::Rpm::Sha256 digest;
  std::array<char, 65536> buffer;
  ssize_t count = 0;
  for (off_t offset = 0; (count = pread(file.get(), buffer.data(), buffer.size(), offset)) > 0; offset += count)
    digest.add(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
  return digest.digits();
}

/// The identity as the tool reads it. Nothing, after a finding, if one of its texts is missing.
std::optional<Package> readIdentity(const Reader& reader, EntryReport& report) {
  Package package{.entry = report.entry.name,
                  .name = reader.tagOr(Tag::Name, ""),
                  .version = reader.tagOr(Tag::Version, "") + "-" + reader.tagOr(Tag::Release, ""),
                  .architecture = reader.tagOr(Tag::Architecture, ""),
                  .sha256 = {},
                  .developer = {},
                  .refusal = {},
                  .files = {},
                  .fullVersion = {}};
  for (const auto& [tag, name] : {std::pair(Tag::Name, "name"), {Tag::Version, "version"}, {Tag::Release, "release"}})
    try {
      (void)reader.tag(tag);
    } catch (const Common::Error&) {
      report.findings.push_back({.id = "identity-missing",
                                 .entry = report.entry.name,
                                 .message = std::string("the package has no usable ") + name,
                                 .about = name});
      return std::nullopt;
    }
  package.fullVersion = reader.tagOr(Tag::FullVersion, package.version);
  return package;
}

bool hasError(const EntryReport& report, const char* id) {
  return std::ranges::find(report.findings, id, &Finding::id) != report.findings.end();
}

/// Asks the tool's own reader whether the device can read the package.
void checkReadableByTool(const std::string& path, EntryReport& report) {
  try {
    (void)readPackageFacts(path);
  } catch (const Common::Error& error) {
    const bool isExplained =
        !report.entry.package->developer &&
        (hasError(report, "unsigned") || hasError(report, "role-missing") || hasError(report, "signature-unreadable"));
    if (!isExplained)
      add(report, "header-damaged", "the tool cannot read the package");
    report.entry.package->developer.reset();
  }
}

void readPackage(const PackageContext& context, const FileDescriptor& file, EntryReport& report) {
  const std::string path = pathOf(file);
  if (!isReadable(path, report))
    return;
  const Reader reader(path);
  std::optional<Package> package = readIdentity(reader, report);
  if (!package)
    return;
  SignatureReport signatures = checkSignatures(context, report.entry.name, file);
  checkLength(reader, file, report, signatures);
  report.findings.insert(report.findings.end(), signatures.findings.begin(), signatures.findings.end());
  package->sha256 = signatures.sha256.empty() ? digestOf(file) : signatures.sha256;
  package->developer = std::move(signatures.developer);
  package->refusal = signatures.refusal;
  checkHeader(context, reader, *package, report);
  report.entry.package = std::move(package);
  checkReadableByTool(path, report);
  if (context.deep && !hasError(report, "header-damaged") && !hasError(report, "signature-broken") &&
      !hasError(report, "payload-compressor-unknown"))
    checkPayload(path, report);
}

} // namespace

EntryReport readEntry(const PackageContext& context, const std::string& name) {
  OpenedEntry opened = openEntry(context.image, name);
  EntryReport report{.entry = {.name = name, .package = {}},
                     .findings = std::move(opened.findings),
                     .breaksListing = opened.breaksListing};
  if (opened.file)
    readPackage(context, opened.file, report);
  return report;
}

} // namespace ImageCheck
