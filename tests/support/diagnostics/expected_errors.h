// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error_code.h"

#include <array>

namespace Support {

struct ExpectedError {
  Common::ErrorCode code;
  int value;
  const char* dbusName;
  const char* shortName;
  const char* message;
};

/// The codes of the service's documentation, written down a second time to find mistakes in the program's own table.
inline constexpr auto expectedErrors = std::to_array<ExpectedError>({
    {Common::ErrorCode::None, 0, "velta.KRV.Error.None", "None", "No error occurred"},
    {Common::ErrorCode::Filesystem, 1, "velta.KRV.Error.Filesystem", "Filesystem", "Filesystem error occurred"},
    {Common::ErrorCode::Internal, 2, "velta.KRV.Error.Internal", "Internal", "Internal error occurred"},
    {Common::ErrorCode::FileNotFound, 3, "velta.KRV.Error.FileNotFound", "FileNotFound",
     "The installation package path does not exist"},
    {Common::ErrorCode::BadPackageID, 5, "velta.KRV.Error.BadPackageID", "BadPackageID",
     "The package has an invalid ID"},
    {Common::ErrorCode::BadPackageArchitecture, 6, "velta.KRV.Error.BadPackageArchitecture", "BadPackageArchitecture",
     "The package architecture does not match the system architecture"},
    {Common::ErrorCode::DowngradeAttempt, 8, "velta.KRV.Error.DowngradeAttempt", "DowngradeAttempt",
     "Attempt to downgrade the package"},
    {Common::ErrorCode::PackageNotExist, 10, "velta.KRV.Error.PackageNotExist", "PackageNotExist",
     "The package does not exist"},
    {Common::ErrorCode::CorruptedInstalledPackage, 11, "velta.KRV.Error.CorruptedInstalledPackage",
     "CorruptedInstalledPackage", "Attempt to retrieve data about a corrupted package"},
    {Common::ErrorCode::UnauthorizedAccess, 13, "velta.KRV.Error.UnauthorizedAccess", "UnauthorizedAccess",
     "The process is not authorized to perform the action"},
    {Common::ErrorCode::SystemPackageInstallationAttempt, 14, "velta.KRV.Error.SystemPackageInstallationAttempt",
     "SystemPackageInstallationAttempt", "Attempt to install a package with system developer signature"},
    {Common::ErrorCode::PackagesWithoutSourceNotAllowed, 15, "velta.KRV.Error.PackagesWithoutSourceNotAllowed",
     "PackagesWithoutSourceNotAllowed", "Installation of packages without a source signature is not allowed"},
    {Common::ErrorCode::SourceRejectedByAdministrator, 16, "velta.KRV.Error.SourceRejectedByAdministrator",
     "SourceRejectedByAdministrator", "The administrator rejected the request to add a source to the trusted list"},
    {Common::ErrorCode::UserNotAuthorizedToManageTrustedSources, 17,
     "velta.KRV.Error.UserNotAuthorizedToManageTrustedSources", "UserNotAuthorizedToManageTrustedSources",
     "The current user has no rights to add a source to the trusted list"},
    {Common::ErrorCode::MissingDeveloperSignature, 18, "velta.KRV.Error.MissingDeveloperSignature",
     "MissingDeveloperSignature", "The package does not have a developer's signature"},
    {Common::ErrorCode::DeveloperMismatch, 19, "velta.KRV.Error.DeveloperMismatch", "DeveloperMismatch",
     "The developer of the already installed package does not match the developer of the package being installed"},
    {Common::ErrorCode::DeveloperKeySuperseded, 20, "velta.KRV.Error.DeveloperKeySuperseded", "DeveloperKeySuperseded",
     "The package is signed with a developer key that has been superseded"},
    {Common::ErrorCode::DeveloperKeyBlacklisted, 21, "velta.KRV.Error.DeveloperKeyBlacklisted",
     "DeveloperKeyBlacklisted", "The package is signed with a developer key that has been blacklisted"},
    {Common::ErrorCode::IllegalDeveloperCertificate, 22, "velta.KRV.Error.IllegalDeveloperCertificate",
     "IllegalDeveloperCertificate", "The package is signed with an illegal developer certificate"},
    {Common::ErrorCode::IllegalSourceCertificate, 23, "velta.KRV.Error.IllegalSourceCertificate",
     "IllegalSourceCertificate", "The package is signed with an illegal source certificate"},
    {Common::ErrorCode::BadPackageVersion, 24, "velta.KRV.Error.BadPackageVersion", "BadPackageVersion",
     "The package version has an incorrect value"},
    {Common::ErrorCode::BadPackageContent, 25, "velta.KRV.Error.BadPackageContent", "BadPackageContent",
     "The package did not pass content validation"},
    {Common::ErrorCode::BadPackageFileFormat, 26, "velta.KRV.Error.BadPackageFileFormat", "BadPackageFileFormat",
     "Failed to parse the package or read the required package data"},
    {Common::ErrorCode::PackageHasDisallowedOrgname, 27, "velta.KRV.Error.PackageHasDisallowedOrgname",
     "PackageHasDisallowedOrgname", "The package has a disallowed organization name"},
    {Common::ErrorCode::FileConflict, 28, "velta.KRV.Error.FileConflict", "FileConflict",
     "File conflict found when installing the package"},
    {Common::ErrorCode::SamePackageIsInstalled, 29, "velta.KRV.Error.SamePackageIsInstalled", "SamePackageIsInstalled",
     "Package with the same version is already installed"},
    {Common::ErrorCode::InvalidArguments, 30, "velta.KRV.Error.InvalidArguments", "InvalidArguments",
     "The passed arguments are not valid"},
    {Common::ErrorCode::SourceNotAllowed, 31, "velta.KRV.Error.SourceNotAllowed", "SourceNotAllowed",
     "Source not allowed by administrator"},
    {Common::ErrorCode::PackageProfileConflict, 32, "velta.KRV.Error.PackageProfileConflict", "PackageProfileConflict",
     "Package with this unique profile is already installed"},
    {Common::ErrorCode::SignatureVerificationFailed, 33, "velta.KRV.Error.SignatureVerificationFailed",
     "SignatureVerificationFailed", "Package signature verification failed"},
    {Common::ErrorCode::DisallowedDeveloperSubgroup, 34, "velta.KRV.Error.DisallowedDeveloperSubgroup",
     "DisallowedDeveloperSubgroup", "The package has a developer signature with a disallowed subgroup"},
});

} // namespace Support
