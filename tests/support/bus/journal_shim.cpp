// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// A library for LD_PRELOAD: a system log without a reader, for programs that do not start without a log. Messages are
// refused when the socket is full, as by a slow log.

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
  // The other end stays open in the program and its children, which log as long as they run.
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0)
    return -1;
  const int made = dup3(ends[0], descriptor, O_CLOEXEC);
  close(ends[0]);
  return made < 0 ? -1 : 0;
}
