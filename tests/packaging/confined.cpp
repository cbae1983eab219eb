// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// Usage: confined SYSTEM-CALLS PROGRAM [ARGUMENT...]
//
// Becomes PROGRAM with these limits: only the system calls in the file SYSTEM-CALLS, only local sockets, no memory that
// is writable and executable, no new privileges. This is the effect of SystemCallFilter=,
// RestrictAddressFamilies=AF_UNIX, MemoryDenyWriteExecute= and NoNewPrivileges= in a unit. Every other call fails with
// EPERM.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

#include <seccomp.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void check(int result) {
  if (result < 0) {
    std::cerr << "confined: " << std::strerror(-result) << '\n';
    _exit(125);
  }
}

void allow(scmp_filter_ctx filter, const std::string& name) {
  const int number = seccomp_syscall_resolve_name(name.c_str());
  if (number < 0) // not of this architecture
    return;
  constexpr scmp_datum_t writeAndExecute = PROT_WRITE | PROT_EXEC;
  if (name == "socket") {
    check(seccomp_rule_add(filter, SCMP_ACT_ALLOW, number, 1, SCMP_A0(SCMP_CMP_EQ, AF_UNIX)));
  } else if (name == "mmap") {
    for (const scmp_datum_t protection : {scmp_datum_t{0}, scmp_datum_t{PROT_WRITE}, scmp_datum_t{PROT_EXEC}})
      check(seccomp_rule_add(filter, SCMP_ACT_ALLOW, number, 1,
                             SCMP_A2(SCMP_CMP_MASKED_EQ, writeAndExecute, protection)));
  } else if (name == "mprotect" || name == "pkey_mprotect") {
    check(seccomp_rule_add(filter, SCMP_ACT_ALLOW, number, 1, SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0)));
  } else {
    check(seccomp_rule_add(filter, SCMP_ACT_ALLOW, number, 0));
  }
}

} // namespace

int main(int count, char** arguments) {
  if (count < 3) {
    std::cerr << "usage: confined SYSTEM-CALLS PROGRAM [ARGUMENT...]\n";
    return 125;
  }
  const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ERRNO(EPERM));
  std::ifstream names(arguments[1]);
  for (std::string name; names >> name;)
    allow(filter, name);
  check(seccomp_load(filter)); // also sets no-new-privileges
  execv(arguments[2], arguments + 2);
  check(-errno);
}
