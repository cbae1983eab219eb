// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/signing.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// An unsigned package, and helpers for the tests. Checks that no test leaves anything in OpenSSL's error queue, and
/// that all signatures that a test stores in the package read the same with and without their keys.
class PackageTest : public testing::Test {
protected:
  PackageTest();
  void TearDown() override;

  const Support::Pki& pki() const { return Support::Pki::instance(); }
  const std::string& package() const { return m_package; }
  const Support::RpmSandbox& sandbox() const { return m_sandbox; }
  std::string inSandbox(const std::string& name) const { return m_sandbox.path() / name; }

  /// The stored signatures of a package as one string.
  std::string container() const;

  bool isReadable() const;
  bool verifies() const;

  /// The answer of verifyCmses(). Fails the test if verifyPackage() finds a problem where that finds none, or none
  /// where it finds one.
  static bool verifiesAgainst(PackageSignatures::FileWithCmses& file, const char* caPath);

  /// The only signature of the package.
  PackageSignatures::Cms onlyCms() const;

  /// A DER message that the openssl program makes for the content of the package, or for another file of the sandbox.
  /// `options` are those of `openssl cms -sign`; "SIGNER:name" stands for the options of a signer of the PKI. The
  /// message names its certificate in a signed attribute, unless one of the options is "UNBOUND".
  std::string opensslCms(const std::vector<std::string>& options, const std::string& file = "content") const;

  /// A further signed attribute of a message: its object identifier, and its values in DER.
  struct Attribute {
    std::string identifier;
    std::vector<std::string> values;
  };

  /// A message for the content of the package with one more attribute, made with OpenSSL's library. `flags` are those
  /// of CMS_add1_signer().
  std::string cmsWithAttribute(const std::string& name, const Attribute& attribute,
                               unsigned int flags = CMS_CADES) const;

  /// The same with the files of a certificate and its key.
  std::string cmsWithAttribute(const std::string& certificatePath, const std::string& keyPath,
                               const Attribute& attribute, unsigned int flags = CMS_CADES) const;

private:
  void expectTheSameWithKeys() const;

  Support::RpmSandbox m_sandbox;
  std::string m_package;
};

/// A DER value; its length has at most four bytes.
std::string der(char tag, const std::string& content);

/// The DER value, whose length has two bytes, with one byte more than needed in its length.
std::string withLongerLength(std::string der);

/// Owns a handle of OpenSSL. Throws if it is null.
template <typename Handle, typename Free>
std::unique_ptr<Handle, Free> owned(Handle* handle, Free release) {
  if (handle == nullptr)
    throw std::runtime_error("OpenSSL fails");
  return {handle, release};
}

/// `bytes` with one occurrence of `from` replaced. Throws if there is none.
std::string replaced(std::string bytes, std::string_view from, std::string_view to);

/// A number in the form of headers, four bytes.
std::string bigEndian(std::size_t value);

/// `bytes` with one bit changed.
std::string flipped(std::string bytes, std::size_t bit);
