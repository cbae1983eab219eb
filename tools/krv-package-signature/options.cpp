// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/options.h"

#include <string_view>

#include <getopt.h>

const char* const helpText = R"(usage:
  krv-package-signature sign   --key K.pem --cert C.pem [--chain CA.pem]
                               [--previous OLDKEY.pem,OLDCERT.pem]... PACKAGE.rpm...
  krv-package-signature show   [--json] PACKAGE.rpm...
  krv-package-signature verify [--ca-path DIR] PACKAGE.rpm...

sign     Signs each package, in place, in the role that the certificate gives:
         developer or source. A signature of the same role is replaced.
  --key       the private key, without a pass phrase
  --cert      its certificate
  --chain     certificates between this one and the authority
  --previous  an earlier key of the developer, which vouches for the next one;
              given once for each key, the oldest first
show     Tells who signed each package, without trusting or verifying anything.
  --json      as a JSON array with one object for each package
verify   Checks everything: certificates, signatures over the content, rotations.
  --ca-path   the directory of trusted authorities, as openssl-rehash(1) makes it
              (default: etc/krv/trusted-ca under $KRV_ROOT_FS or "/")

Exit status: 0 all done, 1 a package failed (the others are done), 2 wrong usage.
)";

namespace {

Command commandFromName(std::string_view name) {
  if (name == "--help" || name == "-h")
    return Command::Help;
  if (name == "sign")
    return Command::Sign;
  if (name == "show")
    return Command::Show;
  if (name == "verify")
    return Command::Verify;
  throw UsageError("unknown command: " + std::string(name));
}

const option* optionsOf(Command command) {
  static const option sign[] = {
      {"key", required_argument, nullptr, 'k'},   {"cert", required_argument, nullptr, 'c'},
      {"chain", required_argument, nullptr, 'a'}, {"previous", required_argument, nullptr, 'p'},
      {"help", no_argument, nullptr, 'h'},        {}};
  static const option show[] = {{"json", no_argument, nullptr, 'j'}, {"help", no_argument, nullptr, 'h'}, {}};
  static const option verify[] = {
      {"ca-path", required_argument, nullptr, 'd'}, {"help", no_argument, nullptr, 'h'}, {}};
  return command == Command::Sign ? sign : command == Command::Show ? show : verify;
}

KeyFiles splitPair(const std::string& pair) {
  const std::size_t comma = pair.find(',');
  if (comma == std::string::npos || pair.find(',', comma + 1) != std::string::npos)
    throw UsageError("--previous takes a key and a certificate with one comma between them, not " + pair);
  return {.key = pair.substr(0, comma), .certificate = pair.substr(comma + 1)};
}

void apply(int letter, const char* value, Options& options) {
  switch (letter) {
  case 'k':
    options.signer.key = value;
    break;
  case 'c':
    options.signer.certificate = value;
    break;
  case 'a':
    options.chainPath = value;
    break;
  case 'p':
    options.previous.push_back(splitPair(value));
    break;
  case 'j':
    options.json = true;
    break;
  case 'd':
    options.caPath = value;
    break;
  default:
    break;
  }
}

void checkComplete(const Options& options) {
  if (options.command == Command::Sign && (options.signer.key.empty() || options.signer.certificate.empty()))
    throw UsageError("sign needs --key and --cert");
  if (options.packages.empty())
    throw UsageError("no package is given");
}

} // namespace

Options parseOptions(int count, char** arguments) {
  if (count < 2)
    throw UsageError("no command is given");
  Options options{.command = commandFromName(arguments[1])};
  if (options.command == Command::Help)
    return options;
  // getopt takes the command for the name of the program.
  --count;
  ++arguments;
  opterr = 0;
  for (int letter = 0; (letter = getopt_long(count, arguments, "h", optionsOf(options.command), nullptr)) != -1;) {
    if (letter == '?')
      throw UsageError("unknown option or missing value: " + std::string(arguments[optind - 1]));
    if (letter == 'h')
      return {.command = Command::Help};
    apply(letter, optarg, options);
  }
  options.packages.assign(arguments + optind, arguments + count);
  checkComplete(options);
  return options;
}
