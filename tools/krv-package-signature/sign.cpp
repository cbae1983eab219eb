// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/posix/blocked_signals.h"
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/packages.h"

#include <rpmsign-external/signing.h>

#include <csignal>

using PackageSignatures::PassPhrases;
using PackageSignatures::SigningKey;

namespace {

/// Loads all keys, so that pass phrases are kept only meanwhile.
PackageSignatures::Signer loadSigner(const Options& options) {
  const PassPhrases passPhrases =
      options.passPhraseFile ? PassPhrases::fromFile(*options.passPhraseFile) : PassPhrases::fromTerminal();
  PackageSignatures::Signer signer{.key = SigningKey::load(options.signer.key, options.signer.certificate, passPhrases),
                                   .chainPath = options.chainPath};
  for (const KeyFiles& files : options.previous)
    signer.previous.push_back(SigningKey::load(files.key, files.certificate, passPhrases));
  return signer;
}

} // namespace

bool sign(const Options& options) {
  const PackageSignatures::Signer signer = loadSigner(options);
  // A write above the file-size limit then fails with an error, and the temporary file is removed.
  std::signal(SIGXFSZ, SIG_IGN);
  return forEachPackage(options.packages, [&](const std::string& path) {
    // Ctrl-C must not leave a half-written file beside the package.
    const Common::Posix::BlockedSignals untilItIsDone;
    PackageSignatures::signPackage(path, signer);
    return std::vector<std::string>();
  });
}
