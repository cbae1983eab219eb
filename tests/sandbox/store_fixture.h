// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "sandbox/package_store.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/environment.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What tests of the package store share.
namespace StoreTest {

/// Who signs a package: the developer, and the earlier keys that vouch for it.
struct Signature {
  std::string developer = "alice";
  std::vector<std::string> previous = {};
};

/// A root with a package store. Its state is compared as text.
class Fixture : public testing::Test {
protected:
  Fixture();

  std::filesystem::path root() const { return m_rpm.path() / "root"; }
  std::filesystem::path operator/(const std::string& name) const { return root() / name; }

  Sandbox::PackageStore& store();

  /// Ends the store. The next use of store() makes another one.
  void closeStore() { m_store.reset(); }

  /// Builds a package, and returns its path; each call makes another file.
  std::string unsignedPackage(const Support::PackageInput& input);
  std::string package(const Support::PackageInput& input, const Signature& signature = {});

  /// As above, with a main header that no build tool makes.
  std::string package(const Support::PackageInput& input, const std::function<void(Header)>& change);

  void installFile(const std::string& path) { store().install(path, "shop"); }
  void install(const Support::PackageInput& input, const Signature& signature = {}) {
    installFile(package(input, signature));
  }

  /// Expects that the installation fails with this error, and that it leaves nothing behind.
  void expectRefused(const std::string& path, const std::string& error);

  /// The files of the root, a line for each in the order of their names: type, permissions, content or target, and for
  /// the further names of a file the first of them. Without what belongs to the store.
  std::string tree() const;

  /// The names of the packages in the database, with their versions, in any order of RPM's.
  std::vector<std::string> database() const;

  /// The events of the registry, without their times.
  std::string registry() const;

  /// All of that, with everything that the database says, and what is left of a transaction.
  std::string state() const;

  Support::RpmSandbox m_rpm;

private:
  Support::ScopedEnvironment m_root;
  std::unique_ptr<Sandbox::PackageStore> m_store;
  int m_packages = 0;
};

} // namespace StoreTest
