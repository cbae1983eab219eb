// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/archive.h"
#include "tests/support/packages/rpm_sandbox.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

/// What tests of the extraction reader share.
namespace ArchiveTest {

using Events = std::vector<std::string>;

std::string textOf(const std::vector<std::byte>& bytes);

std::string payloadOf(const std::filesystem::path& package);

/// The entries of an uncompressed payload with all that belongs to each, the trailer last. An entry has a header of
/// 110 characters, a name and content; name and content are filled up to a multiple of four.
std::vector<std::string> entriesOf(const std::string& payload);

std::string joined(const std::vector<std::string>& entries);

/// One line for an entry, without its content: index, type, path, permissions in octal digits, "ima" if it is to be
/// signed, and the target of a link.
std::string describe(const Common::Rpm::ArchiveEntry& entry);

/// Handlers that write down in `events` what they are called with, and the content of regular files.
Common::Rpm::ExtractionHandlers recording(Common::Rpm::ArchiveReader& archive, Events& events);

/// A package below /opt/sample with a directory, files, a link and a hard-link group of two.
extern const Support::PackageInput mixedPackage;

/// The values of %_binary_payload for all the compressors that librpm writes, by their names.
struct Compressor {
  std::string name;
  std::string payload;
};
extern const std::vector<Compressor> compressors;

class Fixture : public testing::Test {
protected:
  std::filesystem::path package() const { return m_sandbox.path() / "sample.rpm"; }

  void build(const Support::PackageInput& input) const { m_sandbox.build(input, package()); }

  void build(Support::PackageInput input, const Compressor& compressor) const {
    input.globals += "%global _binary_payload " + compressor.payload + "\n";
    build(input);
  }

  Common::Rpm::ArchiveReader open() const { return Common::Rpm::ArchiveReader::openForExtraction(package().string()); }

  /// The events of one extraction under "/target".
  Events extracted() const;

  void expectDamaged() const;

  Support::RpmSandbox m_sandbox;
};

} // namespace ArchiveTest
