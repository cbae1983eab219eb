// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error_code.h"
#include "common/signatures/developer_identity.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// The data that the parts of the image check exchange: what was read, what will happen, what was found.
namespace ImageCheck {

/// The developer's signature of a package.
struct Developer {
  Common::DeveloperIdentity identity;
  std::string subject; ///< of the certificate, in the form of RFC 2253
  std::string issuer;
  std::chrono::sys_seconds notAfter;
  bool isTrusted; ///< whether every signature of the package verifies on the checked day
};

/// A file that a package owns.
struct OwnedFile {
  std::filesystem::path path; ///< below the root
  std::filesystem::file_type type;
  // Two packages may both own a file that is the same in all of these.
  std::filesystem::perms permissions = std::filesystem::perms::none; ///< with set-id and sticky bits
  std::uint64_t size = 0;
  std::string digest = {}; ///< of the content, in hexadecimal digits
  std::string target = {}; ///< of a symlink
  bool isGhost = false;    ///< the package owns the path but has no content for it
};

/// One package of an image. The texts come from the package and may hold any byte.
struct Package {
  std::string entry; ///< the name of its entry in the pre-install directory
  std::string name;
  std::string version; ///< version and release joined with "-", as the device compares it
  std::string architecture;
  std::string sha256; ///< of the whole file, in hexadecimal digits
  std::optional<Developer> developer;
  /// Why the reference service refuses the package on every device; nothing if that depends on the device.
  std::optional<Common::ErrorCode> refusal;
  std::vector<OwnedFile> files;
  std::string fullVersion = {}; ///< `version`, after "epoch:" if the package has an epoch, as the service compares it
  /// The same as `refusal` for what the service checks after it has compared the package with the installed one: the
  /// list of files (Acceptance::checkedFiles()) and the payload.
  std::optional<Common::ErrorCode> contentRefusal = {};
};

/// One entry of the pre-install directory. An entry without a package is skipped by the device as unreadable.
struct Entry {
  std::string name;
  std::optional<Package> package;
};

/// A package as a device has it.
struct InstalledState {
  std::string name;
  std::string version;
  std::string keyId; ///< empty if nothing says who signed it
  std::vector<std::string> previousKeyIds;
};

enum class Action {
  Install,
  Update,
  Skip,
  Refused,    ///< the tool offers the package and the reference service refuses it
  Unreadable, ///< the tool cannot read the package
};

/// The action for one entry at one boot.
struct Row {
  std::string entry;
  std::string name; ///< of the package; empty if it is unreadable
  Action action;
  std::string reason;      ///< the name of a Reason or of an ErrorCode; empty if the package is unreadable
  std::string detail = {}; ///< the message of a refusal; it may hold any byte
};

/// One device at its next boot.
struct Scenario {
  std::string name;
  std::vector<Row> rows;                ///< sorted by entry
  std::vector<InstalledState> endState; ///< sorted by name
};

enum class Severity {
  Error,
  Warning,
  Note,
};

/// One mistake. Severity, consequence and remedy of an id are in the catalogue.
struct Finding {
  std::string id;
  std::optional<std::string> entry; ///< nothing for a finding about the image
  std::string message;              ///< plain text; names from packages are already printable in it
  /// Distinguishes this finding from others with the same id and entry, for example by the name of a dependency. Unlike
  /// the message, it does not change from day to day.
  std::string about = {};
  std::map<std::string, std::string> data = {}; ///< facts for programs, each a JSON value
  std::optional<std::string> waivedBy = {};     ///< the reason of the waiver
};

/// A check that could not be made.
struct NotChecked {
  std::string id;
  std::string why;
};

struct Report {
  std::string image; ///< as given on the command line
  std::chrono::sys_days at;
  std::string architecture;
  std::vector<Package> packages; ///< sorted by entry
  std::vector<Scenario> scenarios;
  std::vector<Finding> findings; ///< sorted by entry, then id; those about the image come first
  std::vector<NotChecked> notChecked;
};

} // namespace ImageCheck
