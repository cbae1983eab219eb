// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/options.h"

#include "tools/krv-package-signature/dates.h"

#include <CLI/CLI.hpp>

namespace {

KeyFiles splitPair(const std::string& pair) {
  const std::size_t comma = pair.find(',');
  if (comma == std::string::npos || pair.find(',', comma + 1) != std::string::npos)
    throw CLI::ValidationError("--previous", "expected KEY,CERT, not " + pair);
  return {.key = pair.substr(0, comma), .certificate = pair.substr(comma + 1)};
}

CLI::App* addCommand(CLI::App& app, const std::string& name, const std::string& description, Options& options) {
  CLI::App* command = app.add_subcommand(name, description);
  command->add_option("PACKAGE", options.packages, "The package files")->required()->type_name("");
  return command;
}

} // namespace

CLI::App* addSign(CLI::App& app, Options& options) {
  CLI::App* command = addCommand(app, "sign",
                                 "Sign each package, in place, in the role that the certificate gives: developer or "
                                 "source. A signature of the same role is replaced.",
                                 options);
  command
      ->add_option("--key", options.signer.key, "The private key: a PEM file, or the pkcs11: URI of a key in a token")
      ->required()
      ->type_name("KEY");
  command->add_option("--cert", options.signer.certificate, "Its certificate")->required()->type_name("FILE");
  command->add_option("--chain", options.chainPath, "Certificates between this one and the authority")
      ->type_name("FILE");
  command
      ->add_option_function<std::vector<std::string>>(
          "--previous",
          [&options](const std::vector<std::string>& pairs) {
            for (const std::string& pair : pairs)
              options.previous.push_back(splitPair(pair));
          },
          "An earlier key of the developer, which vouches for the next one; once for each key, the oldest first")
      ->allow_extra_args(false)
      ->type_name("KEY,CERT");
  command
      ->add_option("--passphrase-file", options.passPhraseFile,
                   "One pass phrase or PIN per line for the keys that need one: first that of --key, then those of "
                   "--previous; default: ask on the terminal")
      ->type_name("FILE");
  return command;
}

CLI::App* addShow(CLI::App& app, Options& options) {
  CLI::App* command =
      addCommand(app, "show", "Show who signed each package, without trusting or verifying anything.", options);
  command->add_flag("--json", options.json, "As a JSON array with one object for each package");
  return command;
}

CLI::App* addVerify(CLI::App& app, Options& options) {
  CLI::App* command =
      addCommand(app, "verify", "Check everything: certificates, signatures over the content, rotations.", options);
  command
      ->add_option("--ca-path", options.caPath,
                   "The directory of trusted authorities, as openssl-rehash(1) makes it; default: etc/krv/trusted-ca "
                   "under $KRV_ROOT_FS or /")
      ->type_name("DIR");
  command
      ->add_option_function<std::string>(
          "--at",
          [&options](const std::string& text) {
            options.at = parseDay(text);
            if (!options.at)
              throw CLI::ValidationError("--at", "expected YYYY-MM-DD, not " + text);
          },
          "The day, in UTC, on which certificates and revocation lists must be valid; default: now")
      ->type_name("YYYY-MM-DD");
  return command;
}
