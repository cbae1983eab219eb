// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/real_root.h"

#include "acceptance/package_rules.h"
#include "common/error/dbus_error.h"
#include "common/error/error.h"
#include "core/registry.h"
#include "driver/package_facts.h"
#include "tests/support/signing/pki.h"
#include "tests/tools/krv-image-check/comparison.h"
#include "tools/krv-image-check/simulated_device.h"

#include <optional>
#include <vector>

namespace ImageCheckTest {

namespace {

using Core::KRV::RegistryRecord;
using ImageCheck::Action;
using ImageCheck::Row;

std::vector<RegistryRecord> records() {
  std::vector<RegistryRecord> records;
  if (!Core::KRV::Registry().foreachRecord([&](const RegistryRecord& record) { records.push_back(record); }))
    throw std::runtime_error("the registry cannot be read");
  return records;
}

std::optional<PackageFacts> factsOf(const std::filesystem::path& path) {
  try {
    return readPackageFacts(path);
  } catch (const Common::Error&) {
    return std::nullopt;
  }
}

std::filesystem::path withAuthority(const std::filesystem::path& root) {
  Support::trustAuthorityUnder(root);
  return root;
}

} // namespace

RealRoot::RealRoot() : m_root("KRV_ROOT_FS", withAuthority(m_directory.path()).string()) {}

Row RealRoot::take(const std::string& name, const std::filesystem::path& path) {
  const std::optional<PackageFacts> facts = factsOf(path);
  if (!facts)
    return {.entry = name, .name = "", .action = Action::Unreadable, .reason = ""};
  std::optional<InstalledPackage> installed;
  try {
    const Sandbox::StoredPackage stored = m_store.get(facts->name);
    installed = {.version = Acceptance::reportedVersion(stored.version), .developerKeyId = stored.developer.keyId};
  } catch (const Common::Error&) {
    installed.reset();
  }
  const Verdict verdict = decide(*facts, installed, records());
  Row row{.entry = name,
          .name = facts->name,
          .action = Action::Skip,
          .reason = std::string(ImageCheck::nameOf(verdict.reason))};
  if (!verdict.isInstallationDue())
    return row;
  try {
    m_store.install(path.string(), "image");
    row.action = installed ? Action::Update : Action::Install;
  } catch (const Common::Error& error) {
    row.action = Action::Refused;
    row.reason = Common::fromCode(static_cast<Common::ErrorCode>(error.code().value())).shortName;
  }
  return row;
}

void RealRoot::remove(const std::string& name) {
  for (const Sandbox::StoredPackage& package : m_store.list()) {
    if (package.name == name)
      m_store.remove(name);
  }
}

std::string RealRoot::installed() const {
  std::string text;
  for (const Sandbox::StoredPackage& package : m_store.list())
    text += textOf(package);
  return text;
}

std::string RealRoot::reported() const {
  std::vector<ImageCheck::InstalledState> state;
  for (const Sandbox::StoredPackage& package : m_store.list())
    state.push_back({.name = package.name,
                     .version = Acceptance::reportedVersion(package.version),
                     .keyId = package.developer.keyId,
                     .previousKeyIds = {}});
  return textOf(state);
}

std::string RealRoot::registry() const {
  return textOf(records());
}

} // namespace ImageCheckTest
