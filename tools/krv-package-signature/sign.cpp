// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/posix/blocked_signals.h"
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/packages.h"

#include <rpmsign-external/signing.h>

#include <csignal>

using PackageSignatures::SigningKey;

bool sign(const Options& options) {
  PackageSignatures::Signer signer{.key = SigningKey::fromFiles(options.signer.key, options.signer.certificate),
                                   .chainPath = options.chainPath};
  for (const KeyFiles& files : options.previous)
    signer.previous.push_back(SigningKey::fromFiles(files.key, files.certificate));
  // A write above the file-size limit then fails with an error, and the temporary file is removed.
  std::signal(SIGXFSZ, SIG_IGN);
  return forEachPackage(options.packages, [&](const std::string& path) {
    // Ctrl-C must not leave a half-written file beside the package.
    const Common::Posix::BlockedSignals untilItIsDone;
    PackageSignatures::signPackage(path, signer);
    return std::vector<std::string>();
  });
}
