// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error_code.h"

#include <array>
#include <string_view>

namespace Common {

struct ErrorTableEntry {
  ErrorCode code;
  std::string_view dbusName;
  std::string_view message;
};

/// Every code with its D-Bus name and its message. The texts are an interface: the service sends the names on the bus,
/// and people search for the messages.
constexpr auto errorTable = std::to_array<ErrorTableEntry>({
    {ErrorCode::None, "velta.KRV.Error.None", "No error occurred"},
    {ErrorCode::Filesystem, "velta.KRV.Error.Filesystem", "Filesystem error occurred"},
    {ErrorCode::Internal, "velta.KRV.Error.Internal", "Internal error occurred"},
    {ErrorCode::FileNotFound, "velta.KRV.Error.FileNotFound", "The installation package path does not exist"},
    {ErrorCode::BadPackageID, "velta.KRV.Error.BadPackageID", "The package has an invalid ID"},
    {ErrorCode::BadPackageArchitecture, "velta.KRV.Error.BadPackageArchitecture",
     "The package architecture does not match the system architecture"},
    {ErrorCode::DowngradeAttempt, "velta.KRV.Error.DowngradeAttempt", "Attempt to downgrade the package"},
    {ErrorCode::PackageNotExist, "velta.KRV.Error.PackageNotExist", "The package does not exist"},
    {ErrorCode::CorruptedInstalledPackage, "velta.KRV.Error.CorruptedInstalledPackage",
     "Attempt to retrieve data about a corrupted package"},
    {ErrorCode::UnauthorizedAccess, "velta.KRV.Error.UnauthorizedAccess",
     "The process is not authorized to perform the action"},
    {ErrorCode::SystemPackageInstallationAttempt, "velta.KRV.Error.SystemPackageInstallationAttempt",
     "Attempt to install a package with system developer signature"},
    {ErrorCode::PackagesWithoutSourceNotAllowed, "velta.KRV.Error.PackagesWithoutSourceNotAllowed",
     "Installation of packages without a source signature is not allowed"},
    {ErrorCode::SourceRejectedByAdministrator, "velta.KRV.Error.SourceRejectedByAdministrator",
     "The administrator rejected the request to add a source to the trusted list"},
    {ErrorCode::UserNotAuthorizedToManageTrustedSources, "velta.KRV.Error.UserNotAuthorizedToManageTrustedSources",
     "The current user has no rights to add a source to the trusted list"},
    {ErrorCode::MissingDeveloperSignature, "velta.KRV.Error.MissingDeveloperSignature",
     "The package does not have a developer's signature"},
    {ErrorCode::DeveloperMismatch, "velta.KRV.Error.DeveloperMismatch",
     "The developer of the already installed package does not match the developer of the package being installed"},
    {ErrorCode::DeveloperKeySuperseded, "velta.KRV.Error.DeveloperKeySuperseded",
     "The package is signed with a developer key that has been superseded"},
    {ErrorCode::DeveloperKeyBlacklisted, "velta.KRV.Error.DeveloperKeyBlacklisted",
     "The package is signed with a developer key that has been blacklisted"},
    {ErrorCode::IllegalDeveloperCertificate, "velta.KRV.Error.IllegalDeveloperCertificate",
     "The package is signed with an illegal developer certificate"},
    {ErrorCode::IllegalSourceCertificate, "velta.KRV.Error.IllegalSourceCertificate",
     "The package is signed with an illegal source certificate"},
    {ErrorCode::BadPackageVersion, "velta.KRV.Error.BadPackageVersion", "The package version has an incorrect value"},
    {ErrorCode::BadPackageContent, "velta.KRV.Error.BadPackageContent", "The package did not pass content validation"},
    {ErrorCode::BadPackageFileFormat, "velta.KRV.Error.BadPackageFileFormat",
     "Failed to parse the package or read the required package data"},
    {ErrorCode::PackageHasDisallowedOrgname, "velta.KRV.Error.PackageHasDisallowedOrgname",
     "The package has a disallowed organization name"},
    {ErrorCode::FileConflict, "velta.KRV.Error.FileConflict", "File conflict found when installing the package"},
    {ErrorCode::SamePackageIsInstalled, "velta.KRV.Error.SamePackageIsInstalled",
     "Package with the same version is already installed"},
    {ErrorCode::InvalidArguments, "velta.KRV.Error.InvalidArguments", "The passed arguments are not valid"},
    {ErrorCode::SourceNotAllowed, "velta.KRV.Error.SourceNotAllowed", "Source not allowed by administrator"},
    {ErrorCode::PackageProfileConflict, "velta.KRV.Error.PackageProfileConflict",
     "Package with this unique profile is already installed"},
    {ErrorCode::SignatureVerificationFailed, "velta.KRV.Error.SignatureVerificationFailed",
     "Package signature verification failed"},
    {ErrorCode::DisallowedDeveloperSubgroup, "velta.KRV.Error.DisallowedDeveloperSubgroup",
     "The package has a developer signature with a disallowed subgroup"},
});

} // namespace Common
