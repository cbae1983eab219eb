// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/catalogue.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

namespace ImageCheck {

namespace {

constexpr bool canBeWaived = true;
constexpr bool cannotBeWaived = false;

constexpr auto explanations = std::to_array<Explanation>({
    // image
    {"directory-missing", Severity::Error, canBeWaived, "The image has no pre-install directory",
     "The tool does not start, because its unit requires the directory. Nothing is installed.",
     "Create usr/share/krv/pre-install-apps in the image and put the packages there."},
    {"directory-empty", Severity::Note, canBeWaived, "The pre-install directory has no entries",
     "The tool does not start, because its unit requires an entry. Nothing is installed.",
     "Put packages into usr/share/krv/pre-install-apps, or leave the tool out of the image."},
    {"directory-writable-by-others", Severity::Error, canBeWaived,
     "Other users may write the pre-install directory or a directory above it",
     "Every user of the device can replace the packages that root installs at the next boot.",
     "Give each directory from the root to the pre-install directory to root with mode 0755."},
    {"tool-missing", Severity::Warning, canBeWaived, "The image does not contain the program krv-pre-installer",
     "No package is installed at boot.", "Install the package krv-pre-installer into the image."},
    {"tool-not-enabled", Severity::Warning, canBeWaived, "The unit krv-pre-installer.service is not enabled",
     "The tool is not started at boot, so no package is installed.",
     "Run 'systemctl --root=IMAGE enable krv-pre-installer', or add a preset that enables it."},
    {"service-not-activatable", Severity::Warning, canBeWaived, "The bus cannot start the package-manager service",
     "Unless a unit starts the service before the tool, the tool ends with status 1 and installs nothing.",
     "Install velta.KRV.service into usr/share/dbus-1/system-services, or waive this if a unit starts the service."},
    {"bus-policy-missing", Severity::Warning, canBeWaived, "The bus has no policy for the package-manager service",
     "The bus does not let the service own its name or the tool call it. Nothing is installed.",
     "Install velta.KRV.conf into usr/share/dbus-1/system.d; an example is installed with the documentation."},
    {"authorities-missing", Severity::Error, canBeWaived, "There is no trusted authority",
     "The service refuses every package, because it cannot verify any certificate.",
     "Put the certificates of the authorities into etc/krv/trusted-ca and run openssl rehash there."},
    {"authorities-unhashed", Severity::Error, canBeWaived,
     "A certificate among the trusted authorities is not found by its hash",
     "The service does not find the authority. It refuses the packages whose signers this authority has certified.",
     "Run 'openssl rehash IMAGE/etc/krv/trusted-ca'."},
    // entry
    {"entry-dangling-link", Severity::Error, cannotBeWaived, "The target of the symlink does not exist",
     "The whole listing fails. The tool ends with status 1 and installs nothing, also none of the other packages.",
     "Remove the symlink, or add its target to the image."},
    {"entry-link-leaves-image", Severity::Error, cannotBeWaived,
     "The symlink leads to a place that is not in the image",
     "On the device the target does not exist, even if it exists on the machine that builds the image. The whole "
     "listing fails. The tool ends with status 1 and installs nothing, also none of the other packages.",
     "Copy the package into the image, or let the symlink lead to a path in the image."},
    {"entry-not-a-file", Severity::Error, canBeWaived, "The entry is not a regular file",
     "The tool logs that it cannot read the package and goes on with the next entry.",
     "Remove the entry. Only packages belong into the pre-install directory."},
    {"entry-not-a-package", Severity::Error, canBeWaived, "The file is not an RPM package",
     "The tool logs that it cannot read the package and goes on with the next entry.",
     "Remove the file. Only packages belong into the pre-install directory."},
    {"entry-unreadable", Severity::Error, canBeWaived, "The tool may not read the file",
     "The unit runs as root without capabilities, so a file that root does not own must be readable by all. The tool "
     "logs that it cannot read the package.",
     "Give the file to root, with mode 0644."},
    {"entry-writable-by-others", Severity::Error, canBeWaived, "Other users may write the file",
     "Every user of the device can replace the package before root installs it.",
     "Give the file to root, with mode 0644."},
    {"entry-owner", Severity::Warning, canBeWaived, "The file does not belong to root",
     "Its owner can replace the package before root installs it.", "Give the file to root."},
    {"entry-name-unprintable", Severity::Warning, canBeWaived,
     "The name of the entry has characters that cannot be printed",
     "The tool installs the package. The bus takes only UTF-8, and lines of the log are hard to read.",
     "Rename the file."},
    {"package-in-subfolder", Severity::Warning, canBeWaived,
     "A package lies in a subfolder of the pre-install directory",
     "The tool looks only at the entries of the directory itself, so it never installs the package.",
     "Move the package into the pre-install directory."},
    // package
    {"header-damaged", Severity::Error, cannotBeWaived, "The package is damaged",
     "The tool cannot read the package, or the service refuses it. It is not installed.",
     "Build the package again, or copy it again from its source."},
    {"payload-damaged", Severity::Error, cannotBeWaived, "The content of the package does not match its header",
     "The service refuses the package when it unpacks it.",
     "Build the package again, or copy it again from its source."},
    {"payload-compressor-unknown", Severity::Error, canBeWaived,
     "The payload is compressed in a way that RPM does not know", "The service cannot unpack the package.",
     "Build the package with gzip, xz or zstd."},
    {"source-package", Severity::Error, canBeWaived, "The file is a source package",
     "A source package has nothing to run. The service unpacks its sources as files of the root, or refuses it.",
     "Put the binary package into the image."},
    {"identity-missing", Severity::Error, canBeWaived, "The package has no usable name, version or release",
     "The tool cannot read the package, or the service refuses it. It is not installed.",
     "Build the package with a name, a version and a release of printable UTF-8, each shorter than 256 bytes."},
    {"architecture-foreign", Severity::Error, canBeWaived, "The package is for another architecture",
     "The service refuses the package with BadPackageArchitecture.",
     "Build the package for the architecture of the device, or as noarch."},
    {"version-unparsable", Severity::Error, canBeWaived, "RPM cannot compare the version",
     "The tool cannot compare it with an installed version and offers the package at every boot; the service refuses "
     "it with BadPackageVersion.",
     "Give the package a version and a release of at most 255 characters each."},
    {"epoch-ignored", Severity::Warning, canBeWaived, "The package has an epoch",
     "The tool compares versions without the epoch. An update that raises only the epoch is never installed.",
     "Raise the version or the release in each update, or do without an epoch."},
    {"openpgp-key-missing", Severity::Error, canBeWaived,
     "The OpenPGP key of the package is not in the image's RPM database",
     "The tool cannot read the package, because RPM does not accept the OpenPGP signature.",
     "Import the key into the image's RPM database, or remove the OpenPGP signature."},
    {"path-reserved", Severity::Error, canBeWaived, "The package has a path that the service refuses",
     "The service refuses the package: folders of the package manager are closed to packages, and each path must be "
     "absolute, normalised and unique.",
     "Remove the path from the package."},
    {"privileged-file", Severity::Warning, canBeWaived, "The package has a file with special rights",
     "Every user of the device can run the program with the rights of the file's owner or with its capabilities.",
     "Remove the set-id bits or capabilities from the package, or waive this after a review."},
    {"scriptlet-present", Severity::Note, canBeWaived, "The package has scriptlets or triggers",
     "The reference service does not run them. Another service may run them as root.",
     "Make sure that the application works without its scriptlets."},
    {"scriptlet-interpreter-missing", Severity::Error, canBeWaived,
     "The interpreter of a scriptlet is not in the image",
     "A service that runs scriptlets fails to install the package.",
     "Add the interpreter to the image, or remove the scriptlet."},
    // signature
    {"unsigned", Severity::Error, cannotBeWaived, "The package is not signed",
     "The tool cannot tell the developer and skips the package.", "Sign the package with krv-package-signature."},
    {"signature-unreadable", Severity::Error, cannotBeWaived, "The signatures of the package cannot be read",
     "The tool logs that it cannot read the package and skips it.",
     "Sign the package again with krv-package-signature."},
    {"signature-broken", Severity::Error, cannotBeWaived, "A signature does not match the content of the package",
     "The service refuses the package: it was changed after it was signed.",
     "Find out who changed the package. Take the original, or sign the package again."},
    {"signer-untrusted", Severity::Error, cannotBeWaived, "The certificate of a signer comes from no trusted authority",
     "The service refuses the package.",
     "Sign the package with a certificate of an authority in etc/krv/trusted-ca, or add the authority to the image."},
    {"signer-revoked", Severity::Error, cannotBeWaived, "The certificate of a signer, or one above it, is revoked",
     "The service refuses the package.", "Sign the package with another certificate."},
    {"signer-expired", Severity::Error, canBeWaived, "The certificate of a signer, or one above it, has expired",
     "The service refuses the package on a device whose clock is right.",
     "Get a new certificate for the key and sign the package again."},
    {"signer-not-yet-valid", Severity::Error, canBeWaived,
     "The certificate of a signer, or one above it, is not yet valid",
     "The service refuses the package until that day.",
     "Check the clock of the machine that made the certificate, or ship the image later."},
    {"signer-expires-soon", Severity::Warning, canBeWaived, "The certificate of a signer expires soon",
     "From that day on, no device that boots the image for the first time installs the package.",
     "Get a new certificate for the key and sign the package again."},
    {"authority-expires-soon", Severity::Warning, canBeWaived, "The certificate of an authority expires soon",
     "From that day on, no device installs packages whose signers this authority has certified.",
     "Renew the certificate of the authority, and replace it in the image and in the packages."},
    {"role-missing", Severity::Error, canBeWaived, "No developer has signed the package, or a signer has no role",
     "The tool cannot tell the developer and skips the package, or the service refuses it.",
     "Sign the package with a certificate that has exactly one role, and as a developer at least."},
    {"role-twice", Severity::Error, cannotBeWaived, "Two signatures of the package have the same role",
     "The service refuses the package, because one of them could hide the other.",
     "Remove the signatures and sign the package again."},
    {"key-weak", Severity::Error, canBeWaived, "A key or a digest in the chain of a signer is too weak",
     "The service refuses the package.",
     "Sign the package with an RSA key of at least 2048 bits or an elliptic curve, and certificates without SHA-1."},
    {"rotation-broken", Severity::Error, cannotBeWaived, "The rotation of the developer's keys does not verify",
     "The service refuses the package.", "Sign the package again, with the earlier keys in their order, oldest first."},
    // together
    {"duplicate-name", Severity::Error, canBeWaived, "Two packages have the same name",
     "The order in which the device lists the directory is not known. It decides which of the two is installed first, "
     "and perhaps which one stays.",
     "Leave only one package of each name in the image."},
    {"dependency-missing", Severity::Error, canBeWaived, "Nothing in the image provides what the package requires",
     "A service that checks dependencies refuses the package. With another one the application does not work.",
     "Add a package that provides it to the image."},
    {"dependency-order", Severity::Warning, canBeWaived,
     "Only another package of the directory provides what the package requires",
     "The packages are installed one by one in an unknown order. If the other package comes later, a service that "
     "checks dependencies refuses this one until the next boot.",
     "Install the other package into the image itself, or make sure that the service does not check dependencies."},
    {"conflict-declared", Severity::Error, canBeWaived,
     "The package declares a conflict with another package of the image",
     "A service that checks conflicts refuses one of them.", "Leave one of the packages out of the image."},
    {"file-conflict", Severity::Error, canBeWaived, "Two packages have the same file with different content",
     "The service refuses the package that comes second.", "Leave the file out of one of the packages."},
    {"space-exceeded", Severity::Error, canBeWaived, "The packages need more space than the device has",
     "The service refuses the packages for which there is no space left.",
     "Leave out packages, or give the device more space."},
    // against the past
    {"downgrade", Severity::Error, canBeWaived, "A device has a newer version of the package",
     "The tool skips the package; the device keeps its version.",
     "Put the newer version or a later one into the image."},
    {"rebuilt-same-version", Severity::Error, canBeWaived, "The package has other content under the same version",
     "A device with the earlier image never gets the new content.", "Raise the release of the package."},
    {"developer-changed", Severity::Error, canBeWaived, "A device has the package from another developer",
     "The tool skips the package; the device keeps its version and never gets an update.",
     "Sign the package with the earlier key, or with a new key that names the earlier one as its predecessor."},
    {"rotation-shortened", Severity::Error, canBeWaived, "The rotation leaves out an earlier key of the developer",
     "Devices that still have a package with the key that is left out cannot follow to the new one.",
     "Sign the package again and name all earlier keys, oldest first."},
    {"package-dropped", Severity::Warning, canBeWaived, "The earlier image has a package that this one does not have",
     "It stays installed on devices and is never updated again.",
     "Add the package, or waive this if that is intended."},
    {"removed-returns", Severity::Warning, canBeWaived, "A package that the user removed is installed again",
     "The user finds the application on the device again.",
     "Sign the package with the key of the removed one or an earlier key, or leave it out of the image."},
    // this tool
    {"check-skipped", Severity::Note, canBeWaived, "Something could not be checked",
     "A mistake may be left that only the device shows.",
     "Give the check what it needs; the message says what that is."},
    {"waiver-unused", Severity::Warning, canBeWaived, "A waiver matches no finding", "It has no effect on the device.",
     "Remove the waiver, or correct its id or its pattern."},
    {"waiver-expired", Severity::Warning, canBeWaived, "A waiver has expired",
     "It has no effect on the device. The findings that it matches count again.",
     "Repair the findings, or give the waiver a later day."},
    {"waiver-refused", Severity::Error, canBeWaived, "A waiver names a finding that cannot be waived",
     "It has no effect on the device. The finding counts.", "Remove the waiver and repair the finding."},
});

} // namespace

std::span<const Explanation> catalogue() {
  return explanations;
}

const Explanation* findExplanation(std::string_view id) {
  const auto found = std::ranges::find(explanations, id, &Explanation::id);
  return found == explanations.end() ? nullptr : &*found;
}

const Explanation& explain(std::string_view id) {
  if (const Explanation* found = findExplanation(id))
    return *found;
  throw std::logic_error("no explanation of " + std::string(id));
}

std::string_view nameOf(Severity severity) {
  switch (severity) {
  case Severity::Error:
    return "error";
  case Severity::Warning:
    return "warning";
  case Severity::Note:
    break;
  }
  return "note";
}

} // namespace ImageCheck
