// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/archive.h"
#include "tests/support/packages/rpm_sandbox.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

/// Helpers for tests of ArchiveReader.
namespace ArchiveTest {

using Events = std::vector<std::string>;

std::string textOf(const std::vector<std::byte>& bytes);

std::string payloadOf(const std::filesystem::path& package);

/// The entries of an uncompressed payload, each with its header, name and content; the trailer is the last one. An
/// entry has a header of 110 characters, a name and content; name and content are padded to a multiple of four.
std::vector<std::string> entriesOf(const std::string& payload);

std::string joined(const std::vector<std::string>& entries);

/// One line for an entry, without its content: index, type, path, octal permissions, "ima" if it gets an IMA signature,
/// and the target of a symlink.
std::string describe(const Common::Rpm::ArchiveEntry& entry);

/// Handlers that record their calls, and the content of regular files, in `events`.
Common::Rpm::ExtractionHandlers recording(Common::Rpm::ArchiveReader& archive, Events& events);

/// A package with a directory, files, a symlink and a hard-link group of two below /opt/sample.
extern const Support::PackageInput mixedPackage;

/// The values of %_binary_payload for all compressors that librpm can write.
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
