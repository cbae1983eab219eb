// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_content.h"
#include "acceptance/package_rules.h"
#include "acceptance/placement.h"
#include "core/registry_record.h"
#include "driver/decision.h"
#include "tools/krv-image-check/model.h"

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ImageCheck {

/// Returns the reason as it stands in a Row, for example "NotInstalled".
std::string_view nameOf(Reason reason);

/// A package as a simulated device has it.
struct InstalledPackageData {
  Acceptance::PackageIdentity identity; ///< without a key id if nothing says who signed the package
  Acceptance::PackagedFiles files;
};

/// A device in memory, on which the tool and the reference service do what they would do on a real one. It decides with
/// their code and opens no file.
class SimulatedDevice {
public:
  /// A device without packages and registry. `root` has the entries that no package of the simulation owns; by default
  /// it is empty.
  explicit SimulatedDevice(Acceptance::Root root = {});

  /// Adds a package that the device has from the beginning. Its files are there, even if `root` does not have them.
  void add(InstalledPackageData package);
  /// Adds a record behind those that the registry has.
  void add(Core::KRV::RegistryRecord record);

  /// One run of the tool over `entries` in their order. Returns the rows in the same order.
  std::vector<Row> boot(const std::vector<Entry>& entries);

  /// The user removes a package. Does nothing if it is not installed.
  void remove(const std::string& name);

  /// The packages that it has, by their names.
  const std::map<std::string, InstalledPackageData>& installed() const { return m_installed; }
  /// The same in the words of the report, sorted by name.
  std::vector<InstalledState> state() const;
  /// The records of the registry in their order.
  const std::vector<Core::KRV::RegistryRecord>& records() const { return m_records; }

private:
  struct Owned {
    std::string package;
    Acceptance::PackagedFile file;
  };

  Row take(const Entry& entry);
  void install(const Package& package);
  void own(InstalledPackageData package);
  void disown(const std::string& name);
  void record(Core::KRV::RegistryRecord::Event event, const Acceptance::PackageIdentity& package);
  void apply(const Acceptance::FileChanges& changes, const Acceptance::PackagedFiles& files);
  Acceptance::PackagedFiles ofOthers(const std::string& name, const Acceptance::PackagedFiles& first,
                                     const Acceptance::PackagedFiles& second) const;
  std::optional<Acceptance::RootEntry> entryAt(const std::filesystem::path& path) const;
  void setEntry(const std::filesystem::path& path, const std::optional<Acceptance::RootEntry>& entry);
  bool isEmpty(const std::filesystem::path& directory) const;
  Acceptance::Root root() const;

  Acceptance::Root m_root;
  /// Entries that differ from those of `m_root`; nothing for an entry that was removed.
  std::unordered_map<std::string, std::optional<Acceptance::RootEntry>> m_entries;
  std::unordered_map<std::string, int> m_children; ///< the number of entries of `m_entries` in each directory
  std::unordered_multimap<std::string, Owned> m_owned;
  std::map<std::string, InstalledPackageData> m_installed;
  std::vector<Core::KRV::RegistryRecord> m_records;
};

} // namespace ImageCheck
