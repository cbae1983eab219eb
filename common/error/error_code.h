// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <system_error>

namespace Common {

/// The error codes of the package-manager family. The numbers are shared with the service: 4, 7, 9 and 12 are not
/// assigned and must stay free.
enum class ErrorCode : std::int32_t {
  None = 0,
  Filesystem = 1,
  Internal = 2,
  FileNotFound = 3,
  BadPackageID = 5,
  BadPackageArchitecture = 6,
  DowngradeAttempt = 8,
  PackageNotExist = 10,
  CorruptedInstalledPackage = 11,
  UnauthorizedAccess = 13,
  SystemPackageInstallationAttempt = 14,
  PackagesWithoutSourceNotAllowed = 15,
  SourceRejectedByAdministrator = 16,
  UserNotAuthorizedToManageTrustedSources = 17,
  MissingDeveloperSignature = 18,
  DeveloperMismatch = 19,
  DeveloperKeySuperseded = 20,
  DeveloperKeyBlacklisted = 21,
  IllegalDeveloperCertificate = 22,
  IllegalSourceCertificate = 23,
  BadPackageVersion = 24,
  BadPackageContent = 25,
  BadPackageFileFormat = 26,
  PackageHasDisallowedOrgname = 27,
  FileConflict = 28,
  SamePackageIsInstalled = 29,
  InvalidArguments = 30,
  SourceNotAllowed = 31,
  PackageProfileConflict = 32,
  SignatureVerificationFailed = 33,
  DisallowedDeveloperSubgroup = 34,
};

/// The only category of these codes, named "Common::ErrorCategory". Its message() never fails: an unassigned number has
/// the message of Internal.
const std::error_category& errorCategory() noexcept;

std::error_code make_error_code(ErrorCode code) noexcept;

} // namespace Common

template <>
struct std::is_error_code_enum<Common::ErrorCode> : std::true_type {};
