// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/packages.h"

#include <csignal>

namespace {

using PackageSignatures::SigningKey;

/// Blocks the signals that end a program until the package is finished, so that Ctrl-C leaves no temporary file beside
/// it.
class SignalsHeld {
public:
  SignalsHeld() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
      sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, &m_before);
  }
  ~SignalsHeld() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
  sigset_t m_before{};
};

} // namespace

bool sign(const Options& options) {
  PackageSignatures::Signer signer{.key = SigningKey::fromFiles(options.signer.key, options.signer.certificate),
                                   .chainPath = options.chainPath};
  for (const KeyFiles& files : options.previous)
    signer.previous.push_back(SigningKey::fromFiles(files.key, files.certificate));
  // A write above the file-size limit then fails with an error, and the temporary file is removed.
  std::signal(SIGXFSZ, SIG_IGN);
  return forEachPackage(options.packages, [&](const std::string& path) {
    const SignalsHeld held;
    PackageSignatures::signPackage(path, signer);
  });
}
