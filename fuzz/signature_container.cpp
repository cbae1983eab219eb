// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"
#include "common/signatures/package_cmses.h"
#include "fuzz/mutator.h"
#include "fuzz/support.h"
#include "tests/support/signing/reading.h"

#include <openssl/err.h>
#include <rpmsign-external/verification.h>

namespace {

using PackageSignatures::Cms;
using PackageSignatures::FileWithCmses;

constexpr const char* trustedCa = KRV_FUZZ_DIRECTORY "/trusted-ca";

/// The signed content of the corpus: the magic of a main header.
constexpr std::string_view content("\x8e\xad\xe8\x01\0\0\0\0", 8);

void append(std::string& bytes, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(number >> shift & 0xff);
}

/// A package with these signatures: docs/signature-format.md.
std::string packageWith(std::string_view container) {
  std::string package("\xed\xab\xee\xdb\x03", 5);
  package.resize(96);
  package[79] = 5;
  package.append("\x8e\xad\xe8\x01\0\0\0\0", 8);
  append(package, 1);
  const auto size = static_cast<std::uint32_t>(container.size());
  for (const std::uint32_t number : {size, 1263687235U, 7U, 0U, size})
    append(package, number);
  package += container;
  package.resize((package.size() + 7) / 8 * 8);
  return package.append(content);
}

void askEverything(const FileWithCmses& file) {
  for (const Cms& cms : file.cmses()) {
    const auto certificate = cms.certificate();
    Fuzz::require(certificate != nullptr, "every signature has its certificate");
    Fuzz::require(certificate->keyId().size() == 64, "every key has an identifier");
    PackageSignatures::subgroupToString(certificate->subgroup());
    for (const std::string& keyId : cms.rotationChain().previousKeyids())
      Fuzz::require(keyId.size() == 64, "every earlier key has an identifier");
  }
  try {
    Common::developerIdentity(file.cmses());
    static_cast<void>(Common::developerCertificate(file.cmses()).verify(trustedCa));
  } catch (const Common::Error&) { // no developer signature
  }
  PackageSignatures::clientCmsFromVector(file.cmses());
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximum,
                                               unsigned int seed) {
  return Fuzz::mutateInput(data, size, maximum, seed, Fuzz::mutateDer);
}

/// Uses the input as the signatures of a package.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Fuzz::MemoryFile package;
  const std::string_view container = Fuzz::begin(data, size);
  package.assign(packageWith(container));
  Fuzz::require(Support::differenceWithKeys(container).empty(), "reading gives the same answers as verifying");
  if (const auto file = FileWithCmses::fromPath(package.path())) {
    askEverything(*file);
    const bool verified = file->verifyCmses(trustedCa);
    Fuzz::require(PackageSignatures::verifyPackage(*file, {.caPath = trustedCa}).isGood() == verified,
                  "a package verifies exactly if no problem is found");
    if (verified)
      Fuzz::accept();
  }
  Fuzz::require(ERR_peek_error() == 0, "OpenSSL's error queue is left empty");
  return 0;
}
