// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "fuzz/mutator.h"
#include "fuzz/rpm_process.h"
#include "fuzz/support.h"
#include "tests/support/process/temp_directory.h"

#include <openssl/err.h>
#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/signing.h>

namespace {

using PackageSignatures::FileWithCmses;

std::string signedContent(const std::string& path) {
  return Support::readFile(path).substr(static_cast<std::size_t>(PackageSignatures::packageLayout(path).contentOffset));
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximum,
                                               unsigned int seed) {
  return Fuzz::mutateInput(data, size, maximum, seed, Fuzz::mutatePackage);
}

/// Finds the signatures of a package and rewrites its signature header without them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::prepareRpm();
  static const Support::TempDirectory folder;
  static const std::string path = folder / "package.rpm";
  Support::writeFile(path, Fuzz::begin(data, size));
  if (FileWithCmses::fromPath(path)) {
    try {
      const std::string before = signedContent(path);
      PackageSignatures::replaceContainer(path, "");
      Fuzz::accept();
      const auto after = FileWithCmses::fromPath(path);
      Fuzz::require(after && after->cmses().empty(), "no signature is left after their removal");
      Fuzz::require(signedContent(path) == before, "the signed content does not change");
    } catch (const PackageSignatures::SigningError&) { // a valid result
    }
  }
  Fuzz::require(ERR_peek_error() == 0, "OpenSSL's error queue is left empty");
  return 0;
}
