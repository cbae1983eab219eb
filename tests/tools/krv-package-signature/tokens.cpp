// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-package-signature/tokens.h"

#include "tests/support/process/temp_directory.h"

namespace {

/// Returns the first match of the pattern in the library folders, or an empty path.
std::string found(const std::string& pattern) {
  const std::string file =
      Support::run({"bash", "-c", "compgen -G \"/usr/lib*/$1\" || compgen -G \"/usr/lib/*/$1\"", "bash", pattern})
          .output;
  return file.substr(0, file.find('\n'));
}

std::string module() {
  const std::string debians = found("softhsm/libsofthsm2.so");
  return debians.empty() ? found("pkcs11/libsofthsm2.so") : debians;
}

} // namespace

std::string missingForTokens() {
  if (module().empty() || Support::run({"bash", "-c", "command -v softhsm2-util"}).status != 0)
    return "SoftHSM is not installed (package softhsm2)";
  if (found("ossl-modules/pkcs11.so").empty())
    return "OpenSSL's provider for PKCS#11 is not installed (package pkcs11-provider)";
  return "";
}

Support::Environment environmentForTokens(const std::filesystem::path& folder) {
  std::filesystem::create_directory(folder / "tokens");
  Support::writeFile(folder / "softhsm2.conf",
                     "directories.tokendir = " + (folder / "tokens").string() + "\nlog.level = ERROR\n");
  return {{"SOFTHSM2_CONF", folder / "softhsm2.conf"}, {"PKCS11_PROVIDER_MODULE", module()}};
}
