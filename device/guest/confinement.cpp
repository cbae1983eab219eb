// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// Tries what the unit forbids the tool, and prints one line for each attempt: its name and "allowed" or the error. It
// is meant for a virtual device that is switched off afterwards, because without confinement every attempt succeeds.
#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/klog.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// `attempt` returns a negative number and sets errno if it is refused. It runs in a process of its own, so that it
/// cannot change what later attempts find.
void attempt(const std::string& name, const std::function<long()>& action) {
  std::cout << name << ": " << std::flush;
  const pid_t child = fork();
  if (child == 0)
    _exit(action() < 0 ? errno : 0);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status))
    std::cout << "signal " << WTERMSIG(status) << std::endl;
  else if (WEXITSTATUS(status) == 0)
    std::cout << "allowed" << std::endl;
  else
    std::cout << strerrorname_np(WEXITSTATUS(status)) << std::endl;
}

long create(const char* path) {
  const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  return file < 0 ? file : unlink(path);
}

long openFor(int flags, const char* path) {
  return open(path, flags | O_CLOEXEC);
}

long mapWritableAndExecutable() {
  return mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) == MAP_FAILED ? -1
                                                                                                                   : 0;
}

long setHostName() {
  utsname names{};
  uname(&names);
  return sethostname(names.nodename, std::strlen(names.nodename));
}

long setClock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return clock_settime(CLOCK_REALTIME, &now);
}

long beRealTime() {
  sched_param parameters{};
  parameters.sched_priority = 1;
  return sched_setscheduler(0, SCHED_FIFO, &parameters);
}

/// The state folder's group is given to somebody else and back.
long changeOwner() {
  return chown("/var/lib/krv", 0, 1) < 0 ? -1 : chown("/var/lib/krv", 0, 0);
}

long makeSetUserId() {
  const char* const path = "/var/lib/krv/confinement";
  const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const long result = fchmod(file, 04755);
  const int reason = errno;
  unlink(path);
  errno = reason;
  return result;
}

long raiseCapability() {
  return prctl(PR_CAPBSET_READ, CAP_SYS_ADMIN) == 1 ? 0 : (errno = EPERM, -1);
}

} // namespace

int main() {
  attempt("write the registry's folder", [] { return create("/var/lib/krv/confinement"); });
  attempt("write the folder of RPM's database", [] { return create("/var/lib/rpm/confinement"); });
  attempt("write /usr", [] { return create("/usr/confinement"); });
  attempt("write /etc", [] { return create("/etc/confinement"); });
  attempt("write /opt", [] { return create("/opt/confinement"); });
  attempt("write the image's packages", [] { return create("/usr/share/krv/pre-install-apps/confinement"); });
  attempt("write /var/lib", [] { return create("/var/lib/confinement"); });
  attempt("write /run", [] { return create("/run/confinement"); });
  attempt("write /sys/fs/cgroup", [] { return mkdir("/sys/fs/cgroup/confinement", 0700); });
  attempt("read /root", [] { return openFor(O_RDONLY | O_DIRECTORY, "/root"); });
  attempt("see another's /tmp", [] { return openFor(O_RDONLY, "/tmp/krv-device"); });
  attempt("open the disk", [] { return openFor(O_RDONLY, "/dev/nvme0n1"); });
  attempt("read the kernel's log", [] { return klogctl(3, nullptr, 0) < 0 ? -1L : 0L; });
  attempt("open /dev/kmsg", [] { return openFor(O_WRONLY, "/dev/kmsg"); });
  attempt("write a kernel setting", [] { return openFor(O_WRONLY, "/proc/sys/vm/swappiness"); });
  attempt("set the clock", setClock);
  attempt("set the host name", setHostName);
  attempt("mount", [] { return mount("none", "/mnt", "tmpfs", 0, nullptr); });
  attempt("make a user namespace", [] { return unshare(CLONE_NEWUSER); });
  attempt("make a mount namespace", [] { return unshare(CLONE_NEWNS); });
  attempt("open an internet socket", [] { return socket(AF_INET, SOCK_STREAM, 0); });
  attempt("open a netlink socket", [] { return socket(AF_NETLINK, SOCK_RAW, 0); });
  attempt("open a local socket", [] { return socket(AF_UNIX, SOCK_STREAM, 0); });
  attempt("be another user", [] { return setuid(1); });
  attempt("change an owner", changeOwner);
  attempt("make a set-user-ID file", makeSetUserId);
  attempt("keep a capability", raiseCapability);
  attempt("write and execute memory", mapWritableAndExecutable);
  attempt("be real-time", beRealTime);
  attempt("raise the priority", [] { return setpriority(PRIO_PROCESS, 0, -5); });
  attempt("change the personality", [] { return personality(PER_LINUX32) < 0 ? -1L : 0L; });
  attempt("trace a process", [] { return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); });
  attempt("load a module", [] { return syscall(SYS_init_module, nullptr, 0UL, ""); });
  attempt("swap", [] { return swapoff("/none"); });
}
