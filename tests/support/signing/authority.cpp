// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/signing/authority.h"

#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <utility>

namespace Support {

Authority::Authority(std::filesystem::path folder) : m_folder(std::move(folder)) {
  std::filesystem::create_directories(trusted());
  writeFile(m_folder / "config", R"([req]
distinguished_name = subject
[subject]
[developer]
extendedKeyUsage = )" + krvArc + R"(.1
[store]
extendedKeyUsage = )" + krvArc +
                                     R"(.2
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = keyCertSign, cRLSign
[anything]
commonName = supplied
[ca]
default_ca = lists
[lists]
default_md = sha256
rand_serial = yes
policy = anything
)"
                                     "new_certs_dir = " +
                                     m_folder.string() + "\ndatabase = " + (m_folder / "index").string() + "\n");
  writeFile(m_folder / "index", "");
  certify("root", {.authority = "", .extensions = ofAnAuthority});
  trust("root");
}

void Authority::certify(const std::string& name, const CertificateRequest& request) const {
  std::vector<std::string> command = {"openssl",
                                      "req",
                                      "-x509",
                                      "-config",
                                      m_folder / "config",
                                      "-noenc",
                                      "-newkey",
                                      request.key,
                                      "-keyout",
                                      key(name),
                                      "-out",
                                      pem(name),
                                      "-" + request.digest,
                                      "-utf8",
                                      "-days",
                                      std::to_string(request.days),
                                      "-subj",
                                      request.subject.empty() ? "/CN=" + name : request.subject};
  if (request.key == "ec")
    command.insert(command.end(), {"-pkeyopt", "ec_paramgen_curve:P-256"});
  if (!request.authority.empty())
    command.insert(command.end(), {"-CA", pem(request.authority), "-CAkey", key(request.authority)});
  for (const std::string& extension : request.extensions)
    command.insert(command.end(), {"-addext", extension});
  runOrThrow(command);
}

void Authority::certifyBetween(const std::string& name, const std::string& start, const std::string& end,
                               const std::string& kind, const std::string& authority) const {
  const std::string config = m_folder / "config";
  const std::string request = m_folder / "request";
  runOrThrow({"openssl", "req", "-new", "-config", config, "-noenc", "-newkey", "ec", "-pkeyopt",
              "ec_paramgen_curve:P-256", "-subj", "/CN=" + name, "-keyout", key(name), "-out", request});
  // In OpenSSL 3.0 only this command can set both dates.
  std::vector<std::string> command = {"openssl",    "ca",    "-batch",   "-notext", "-config",     config,
                                      "-in",        request, "-out",     pem(name), "-extensions", kind,
                                      "-startdate", start,   "-enddate", end};
  if (authority.empty())
    command.insert(command.end(), {"-selfsign", "-keyfile", key(name)});
  else
    command.insert(command.end(), {"-cert", pem(authority), "-keyfile", key(authority)});
  runOrThrow(command);
}

std::string Authority::hashOf(const std::string& name) const {
  return runOrThrow({"openssl", "x509", "-in", pem(name), "-noout", "-subject_hash"}).substr(0, 8);
}

void Authority::trust(const std::string& name) const {
  std::filesystem::copy_file(pem(name), trusted() / (hashOf(name) + ".0"));
}

void Authority::publishList(const std::string& authority, const std::vector<std::string>& options) const {
  std::vector<std::string> command = {"openssl",
                                      "ca",
                                      "-gencrl",
                                      "-config",
                                      m_folder / "config",
                                      "-cert",
                                      pem(authority),
                                      "-keyfile",
                                      key(authority),
                                      "-out",
                                      trusted() / (hashOf(authority) + ".r0")};
  command.insert(command.end(), options.begin(), options.end());
  runOrThrow(command);
}

void Authority::revoke(const std::string& name) const {
  runOrThrow({"openssl", "ca", "-config", m_folder / "config", "-cert", pem("root"), "-keyfile", key("root"), "-revoke",
              pem(name)});
}

} // namespace Support
