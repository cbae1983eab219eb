// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// A library for LD_PRELOAD: a system log that nobody reads, for programs that do not start without one. It takes
// messages until the socket is full; those that follow are refused as by a log that does not keep up.

#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

extern "C" int connect(int descriptor, const sockaddr* address, socklen_t size) {
  const auto* const local = reinterpret_cast<const sockaddr_un*>(address);
  if (address->sa_family != AF_UNIX || std::strcmp(local->sun_path, "/run/systemd/journal/socket") != 0) {
    const auto next = reinterpret_cast<int (*)(int, const sockaddr*, socklen_t)>(dlsym(RTLD_NEXT, "connect"));
    return next(descriptor, address, size);
  }
  // The other end stays open in the program and in those that it starts, which send for as long as they run.
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0)
    return -1;
  const int made = dup3(ends[0], descriptor, O_CLOEXEC);
  close(ends[0]);
  return made < 0 ? -1 : 0;
}
