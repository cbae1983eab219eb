// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/packages/open_pgp_key.h"

#include "tests/support/process/process.h"

#include <stdexcept>

namespace Support {

OpenPgpKey::OpenPgpKey(const RpmSandbox& sandbox)
    : m_sandbox(sandbox), m_gnupgHome("GNUPGHOME", (sandbox.path() / "gnupg").string()) {
  std::filesystem::create_directories(sandbox.path() / "gnupg");
  std::filesystem::permissions(sandbox.path() / "gnupg", std::filesystem::perms::owner_all);
  runOrThrow({"gpg", "--batch", "--quiet", "--passphrase", "", "--quick-generate-key", "tester", "rsa2048"});
}

OpenPgpKey::~OpenPgpKey() {
  try {
    run({"gpgconf", "--kill", "gpg-agent"});
  } catch (const std::exception&) {
    // The agent ends itself when its folder is gone.
  }
}

void OpenPgpKey::sign(const std::filesystem::path& package) const {
  const std::string before = readFile(package);
  runOrThrow({"rpmsign", "--define", "__gpg /usr/bin/gpg", "--define", "_gpg_name tester", "--addsign", package});
  if (readFile(package) == before) // the exit status alone is not enough
    throw std::runtime_error("rpmsign did not sign " + package.string());
}

void OpenPgpKey::import() const {
  const std::filesystem::path file = m_sandbox.path() / "key.asc";
  writeFile(file, runOrThrow({"gpg", "--batch", "--armor", "--export", "tester"}));
  runOrThrow({"rpmkeys", "--import", file});
}

} // namespace Support
