// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/packages.h"

#include "common/posix/regular_file.h"
#include "common/text/printable.h"

#include <rpmsign-external/signing.h>

#include <cerrno>
#include <iostream>
#include <system_error>

using PackageSignatures::Role;
using PackageSignatures::SigningError;

void complain(const std::string& message) {
  std::cerr << "krv-package-signature: " << message << '\n';
}

void complainAbout(const std::string& path, const std::string& message) {
  complain(Common::printable(path) + ": " + message);
}

Common::Posix::FileDescriptor openPackage(const std::string& path) {
  struct stat status {};
  Common::Posix::FileDescriptor file = Common::Posix::openRegularFile(path.c_str(), O_RDONLY, 0, status);
  if (!file && errno == ENOTSUP)
    throw SigningError("it is not a regular file");
  if (!file)
    throw SigningError("it cannot be opened: " + std::generic_category().message(errno));
  return file;
}

std::string roleName(std::optional<Role> role) {
  if (!role)
    return "";
  return *role == Role::Developer ? "developer" : "source";
}
