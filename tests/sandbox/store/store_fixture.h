// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "sandbox/store/package_store.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/scoped_mask.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// Helpers for tests of the package store.
namespace StoreTest {

/// The signer of a package: the developer, and the earlier keys.
struct Signature {
  std::string developer = "alice";
  std::vector<std::string> previous = {};
};

/// A root with a package store. Its state can be compared as text.
class Fixture : public testing::Test {
protected:
  Fixture();

  std::filesystem::path root() const { return m_rpm.path() / "root"; }
  std::filesystem::path operator/(const std::string& name) const { return root() / name; }

  Sandbox::PackageStore& store();

  /// Closes the store. The next call of store() opens it again.
  void closeStore() { m_store.reset(); }

  /// Builds a package in a new file and returns its path.
  std::string unsignedPackage(const Support::PackageInput& input);
  std::string package(const Support::PackageInput& input, const Signature& signature = {});

  /// The same with a changed main header, signed.
  std::string package(const Support::PackageInput& input, const std::function<void(Header)>& change);

  void installFile(const std::string& path) { store().install(path, "shop"); }
  void install(const Support::PackageInput& input, const Signature& signature = {}) {
    installFile(package(input, signature));
  }

  /// Expects the installation to fail with this error and to leave nothing behind.
  void expectRefused(const std::string& path, const std::string& error);

  /// The files of the root except the store's own, sorted by name, one per line: type, permissions, content or target;
  /// for a further name of a file its first name.
  std::string tree() const;

  /// The names and versions of the packages in the database, in the order of RPM.
  std::vector<std::string> database() const;

  /// The events of the registry, without timestamps.
  std::string registry() const;

  /// All of these, all header tags of the database, and the files of an unfinished transaction.
  std::string state() const;

  Support::RpmSandbox m_rpm;

private:
  /// Trees are compared with their modes, also of the user's files.
  const Support::ScopedMask m_mask{0022};
  Support::ScopedEnvironment m_root;
  std::unique_ptr<Sandbox::PackageStore> m_store;
  int m_packages = 0;
};

} // namespace StoreTest
