// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/packages/rpm_sandbox.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace ImageCheckTest {

/// The files of a package, beside one file in /opt/NAME.
enum class Content {
  Own,         ///< nothing else
  Shared,      ///< /opt/common/file, the same in all packages
  Other,       ///< /opt/common/file with other content
  Link,        ///< /opt/common/file as a symlink
  Ghost,       ///< /opt/common/file without content
  InPlace,     ///< /opt/common as a file
  LinkInPlace, ///< /opt/common as a symlink
  InsideOther, ///< a file below /opt/aaaa, which another package has too
  Reserved,    ///< a file in etc/krv
};

enum class Flaw {
  None,
  Rebuilt, ///< no flaw: other bytes
  ForeignArchitecture,
  BadName,
  BadVersion,
  InstallationTags,
  LongerThanPromised,
  Unsigned,
  DamagedPayload, ///< behind good headers and signatures
  Truncated,
  NoPackage,
};

struct Signing {
  std::string developer = "alice";
  std::vector<std::string> previous = {};
};

struct Choice {
  std::string name = "aaaa"; ///< four characters
  Content content = Content::Own;
  int epoch = 0;
  std::string version = "1.0";
  std::string release = "1";
  Signing signing = {};
  Flaw flaw = Flaw::None;
};

/// Packages that differ in everything that decides what happens to them. Each is made at its first use: rpmbuild runs
/// once for each content, the rest is changed in its header.
class PackagePool {
public:
  explicit PackagePool(const Support::RpmSandbox& rpm) : m_rpm(rpm) {}

  /// The package file of a choice; the same file for the same choice.
  std::filesystem::path package(const Choice& choice);

private:
  std::filesystem::path base(Content content);
  void make(const Choice& choice, const std::filesystem::path& path);

  const Support::RpmSandbox& m_rpm;
  std::map<Content, std::filesystem::path> m_bases;
  std::map<std::string, std::filesystem::path> m_packages;
};

} // namespace ImageCheckTest
