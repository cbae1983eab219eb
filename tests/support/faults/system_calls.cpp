// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/faults/system_calls.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/syscall.h>

namespace Support {

namespace {

using Errors = std::vector<int>;

// The errors in the manual page of each call, except those that a correct program never gets (EBADF, EFAULT) and those
// that state a fact about a path (ENOENT, EEXIST), which would be wrong here. EINTR and EIO occur on network and
// user-space file systems, even for calls that never return them on a local one.
const Errors opening = {EACCES, EINTR, EIO, EMFILE, ENFILE, ENOSPC};
const Errors asking = {EACCES, EIO};
const Errors askingOpenFile = {EIO};
const Errors reading = {EINTR, EIO};
const Errors writing = {EDQUOT, EINTR, EIO, ENOSPC};
const Errors closing = {EDQUOT, EINTR, EIO, ENOSPC};
const Errors naming = {EACCES, EDQUOT, EIO, ENOSPC, EROFS};
const Errors removing = {EACCES, EBUSY, EIO, EROFS};
const Errors changing = {EACCES, EIO, EPERM, EROFS};
const Errors readingAttributes = {EACCES, EIO, ERANGE};
const Errors attaching = {EACCES, EDQUOT, EIO, ENOSPC, ENOTSUP, EPERM};
const Errors duplicating = {EMFILE};
const Errors none = {};

const std::vector<FileCall> fileCalls = {
#ifdef SYS_open // newer architectures have only the calls with a directory descriptor
    {SYS_access, "access", {.path = 0}, asking},
    {SYS_chmod, "chmod", {.path = 0}, changing},
    {SYS_chown, "chown", {.path = 0}, changing},
    {SYS_creat, "creat", {.path = 0}, opening},
    {SYS_dup2, "dup2", {.descriptor = 0}, duplicating},
    {SYS_getdents, "getdents", {.descriptor = 0}, askingOpenFile},
    {SYS_lchown, "lchown", {.path = 0}, changing},
    {SYS_link, "link", {.path = 0}, naming, {.path = 1}},
    {SYS_lstat, "lstat", {.path = 0}, asking},
    {SYS_mkdir, "mkdir", {.path = 0}, naming},
    {SYS_mknod, "mknod", {.path = 0}, naming},
    {SYS_open, "open", {.path = 0}, opening},
    {SYS_readlink, "readlink", {.path = 0}, asking},
    {SYS_rename, "rename", {.path = 0}, naming, {.path = 1}},
    {SYS_rmdir, "rmdir", {.path = 0}, removing},
    {SYS_stat, "stat", {.path = 0}, asking},
    {SYS_symlink, "symlink", {.path = 1}, naming},
    {SYS_unlink, "unlink", {.path = 0}, removing},
    {SYS_utimes, "utimes", {.path = 0}, changing},
#endif
#ifdef SYS_utime
    {SYS_utime, "utime", {.path = 0}, changing},
#endif
#ifdef SYS_newfstatat
    {SYS_newfstatat, "newfstatat", {.path = 1, .descriptor = 0}, asking},
#endif
#ifdef SYS_mmap
    {SYS_mmap, "mmap", {.descriptor = 4}, {ENFILE, ENOMEM}},
#endif
#ifdef SYS_fadvise64
    {SYS_fadvise64, "fadvise64", {.descriptor = 0}, none},
#endif
#ifdef SYS_sync_file_range
    {SYS_sync_file_range, "sync_file_range", {.descriptor = 0}, {EIO, ENOSPC}},
#endif
#ifdef SYS_fcntl64 // 32-bit processors have the same calls again with wider numbers
    {SYS__llseek, "lseek", {.descriptor = 0}, none},
    {SYS_chown32, "chown", {.path = 0}, changing},
    {SYS_fchown32, "fchown", {.descriptor = 0}, changing},
    {SYS_fcntl64, "fcntl", {.descriptor = 0}, none},
    {SYS_fstat64, "fstat", {.descriptor = 0}, askingOpenFile},
    {SYS_fstatat64, "newfstatat", {.path = 1, .descriptor = 0}, asking},
    {SYS_fstatfs64, "fstatfs", {.descriptor = 0}, {EINTR, EIO}},
    {SYS_ftruncate64, "ftruncate", {.descriptor = 0}, {EINTR, EIO, EPERM}},
    {SYS_lchown32, "lchown", {.path = 0}, changing},
    {SYS_lstat64, "lstat", {.path = 0}, asking},
    {SYS_mmap2, "mmap", {.descriptor = 4}, {ENFILE, ENOMEM}},
    {SYS_sendfile64, "sendfile", {.descriptor = 0}, {EINTR, EIO, ENOMEM}, {.descriptor = 1}},
    {SYS_stat64, "stat", {.path = 0}, asking},
    {SYS_statfs64, "statfs", {.path = 0}, asking},
    {SYS_truncate64, "truncate", {.path = 0}, {EACCES, EINTR, EIO}},
    {SYS_utimensat_time64, "utimensat", {.path = 1, .descriptor = 0}, changing},
#endif
    {SYS_chdir, "chdir", {.path = 0}, asking},
    {SYS_close, "close", {.descriptor = 0}, closing},
    {SYS_copy_file_range, "copy_file_range", {.descriptor = 2}, {EINTR, EIO, ENOSPC, EXDEV}, {.descriptor = 0}},
    {SYS_dup, "dup", {.descriptor = 0}, duplicating},
    {SYS_dup3, "dup3", {.descriptor = 0}, duplicating},
    {SYS_execve, "execve", {.path = 0}, opening},
    {SYS_faccessat, "faccessat", {.path = 1, .descriptor = 0}, asking},
    {SYS_faccessat2, "faccessat2", {.path = 1, .descriptor = 0}, asking},
    {SYS_fallocate, "fallocate", {.descriptor = 0}, {EINTR, EIO, ENOSPC, EOPNOTSUPP}},
    {SYS_fchdir, "fchdir", {.descriptor = 0}, asking},
    {SYS_fchmod, "fchmod", {.descriptor = 0}, changing},
    {SYS_fchmodat, "fchmodat", {.path = 1, .descriptor = 0}, changing},
    {SYS_fchown, "fchown", {.descriptor = 0}, changing},
    {SYS_fchownat, "fchownat", {.path = 1, .descriptor = 0}, changing},
    {SYS_fcntl, "fcntl", {.descriptor = 0}, none},
    {SYS_fdatasync, "fdatasync", {.descriptor = 0}, writing},
    {SYS_fgetxattr, "fgetxattr", {.descriptor = 0}, {EIO, ERANGE}},
    {SYS_flistxattr, "flistxattr", {.descriptor = 0}, {EIO, ERANGE}},
    {SYS_flock, "flock", {.descriptor = 0}, {EINTR, ENOLCK}},
    {SYS_fremovexattr, "fremovexattr", {.descriptor = 0}, changing},
    {SYS_fsetxattr, "fsetxattr", {.descriptor = 0}, attaching},
    {SYS_fstat, "fstat", {.descriptor = 0}, askingOpenFile},
    {SYS_fstatfs, "fstatfs", {.descriptor = 0}, {EINTR, EIO}},
    {SYS_fsync, "fsync", {.descriptor = 0}, writing},
    {SYS_ftruncate, "ftruncate", {.descriptor = 0}, {EINTR, EIO, EPERM}},
    {SYS_getdents64, "getdents64", {.descriptor = 0}, askingOpenFile},
    {SYS_getxattr, "getxattr", {.path = 0}, readingAttributes},
    {SYS_ioctl, "ioctl", {.descriptor = 0}, {ENOTTY}},
    {SYS_lgetxattr, "lgetxattr", {.path = 0}, readingAttributes},
    {SYS_linkat, "linkat", {.path = 1, .descriptor = 0}, naming, {.path = 3, .descriptor = 2}},
    {SYS_listxattr, "listxattr", {.path = 0}, readingAttributes},
    {SYS_llistxattr, "llistxattr", {.path = 0}, readingAttributes},
    {SYS_lremovexattr, "lremovexattr", {.path = 0}, changing},
    {SYS_lseek, "lseek", {.descriptor = 0}, none},
    {SYS_lsetxattr, "lsetxattr", {.path = 0}, attaching},
    {SYS_mkdirat, "mkdirat", {.path = 1, .descriptor = 0}, naming},
    {SYS_mknodat, "mknodat", {.path = 1, .descriptor = 0}, naming},
    {SYS_openat, "openat", {.path = 1, .descriptor = 0}, opening},
    {SYS_openat2, "openat2", {.path = 1, .descriptor = 0}, opening},
    {SYS_pread64, "pread64", {.descriptor = 0}, reading},
    {SYS_preadv, "preadv", {.descriptor = 0}, reading},
    {SYS_preadv2, "preadv2", {.descriptor = 0}, reading},
    {SYS_pwrite64, "pwrite64", {.descriptor = 0}, writing},
    {SYS_pwritev, "pwritev", {.descriptor = 0}, writing},
    {SYS_pwritev2, "pwritev2", {.descriptor = 0}, writing},
    {SYS_read, "read", {.descriptor = 0}, reading},
    {SYS_readlinkat, "readlinkat", {.path = 1, .descriptor = 0}, asking},
    {SYS_readv, "readv", {.descriptor = 0}, reading},
    {SYS_removexattr, "removexattr", {.path = 0}, changing},
    {SYS_renameat, "renameat", {.path = 1, .descriptor = 0}, naming, {.path = 3, .descriptor = 2}},
    {SYS_renameat2, "renameat2", {.path = 1, .descriptor = 0}, naming, {.path = 3, .descriptor = 2}},
    {SYS_sendfile, "sendfile", {.descriptor = 0}, {EINTR, EIO, ENOMEM}, {.descriptor = 1}},
    {SYS_setxattr, "setxattr", {.path = 0}, attaching},
    {SYS_splice, "splice", {.descriptor = 2}, {EIO, ENOMEM}, {.descriptor = 0}},
    {SYS_statfs, "statfs", {.path = 0}, asking},
    {SYS_statx, "statx", {.path = 1, .descriptor = 0}, asking},
    {SYS_symlinkat, "symlinkat", {.path = 2, .descriptor = 1}, naming},
    {SYS_syncfs, "syncfs", {.descriptor = 0}, {EDQUOT, EIO, ENOSPC}},
    {SYS_truncate, "truncate", {.path = 0}, {EACCES, EINTR, EIO}},
    {SYS_unlinkat, "unlinkat", {.path = 1, .descriptor = 0}, removing},
    {SYS_utimensat, "utimensat", {.path = 1, .descriptor = 0}, changing},
    {SYS_write, "write", {.descriptor = 0}, writing},
    {SYS_writev, "writev", {.descriptor = 0}, writing},
};

const std::vector<long> harmless = {
#ifdef SYS_open
    SYS_fork,
    SYS_getpgrp,
    SYS_pause,
    SYS_pipe,
    SYS_poll,
    SYS_vfork,
#endif
#ifdef SYS_arch_prctl
    SYS_arch_prctl,
#endif
#ifdef SYS_getrlimit
    SYS_getrlimit,
#endif
#ifdef SYS_select
    SYS_select,
#endif
#ifdef SYS_set_thread_area
    SYS_set_thread_area,
#endif
#ifdef SYS_time
    SYS_time,
#endif
#ifdef SYS_waitpid
    SYS_waitpid,
#endif
#ifdef SYS_fcntl64 // 32-bit processors
    SYS__newselect,
    SYS_clock_getres_time64,
    SYS_clock_gettime64,
    SYS_clock_nanosleep_time64,
    SYS_futex_time64,
    SYS_getegid32,
    SYS_geteuid32,
    SYS_getgid32,
    SYS_getgroups32,
    SYS_getresgid32,
    SYS_getresuid32,
    SYS_getuid32,
    SYS_ppoll_time64,
    SYS_rt_sigtimedwait_time64,
    SYS_sigreturn,
    SYS_ugetrlimit,
#endif
    SYS_brk,
    SYS_capget,
    SYS_clock_getres,
    SYS_clock_gettime,
    SYS_clock_nanosleep,
    SYS_clone,
    SYS_clone3,
    SYS_connect,
    SYS_exit,
    SYS_futex,
    SYS_getcwd,
    SYS_getegid,
    SYS_geteuid,
    SYS_getgid,
    SYS_getgroups,
    SYS_getpgid,
    SYS_getpid,
    SYS_getppid,
    SYS_getpriority,
    SYS_getrandom,
    SYS_getresgid,
    SYS_getresuid,
    SYS_getrusage,
    SYS_getsid,
    SYS_gettid,
    SYS_gettimeofday,
    SYS_getuid,
    SYS_kill,
    SYS_madvise,
    SYS_membarrier,
    SYS_mprotect,
    SYS_mremap,
    SYS_munmap,
    SYS_nanosleep,
    SYS_pipe2,
    SYS_ppoll,
    SYS_prctl,
    SYS_prlimit64,
    SYS_ptrace,
    SYS_restart_syscall,
    SYS_rseq,
    SYS_rt_sigaction,
    SYS_rt_sigpending,
    SYS_rt_sigprocmask,
    SYS_rt_sigreturn,
    SYS_rt_sigsuspend,
    SYS_rt_sigtimedwait,
    SYS_sched_getaffinity,
    SYS_sched_yield,
    SYS_set_robust_list,
    SYS_set_tid_address,
    SYS_setrlimit,
    SYS_sigaltstack,
    SYS_socket,
    SYS_sysinfo,
    SYS_tgkill,
    SYS_times,
    SYS_umask,
    SYS_uname,
    SYS_wait4,
    SYS_waitid,
};

bool waitsForLock(const FileCall& call, const unsigned long long* arguments) {
  return call.name == std::string_view("fcntl") && (arguments[1] == F_SETLKW || arguments[1] == F_OFD_SETLKW);
}

} // namespace

const FileCall* findFileCall(long number) {
  const auto call = std::ranges::find(fileCalls, number, &FileCall::number);
  return call == fileCalls.end() ? nullptr : &*call;
}

std::vector<int> errorsOf(const FileCall& call, const unsigned long long* arguments) {
  // Of the commands of fcntl(2) only the lock commands can fail.
  if (waitsForLock(call, arguments))
    return {EDEADLK, EINTR, ENOLCK};
  std::vector<int> errors = call.errors;
  // Only creating a file can fail with ENOSPC.
  if (call.number == SYS_openat && (arguments[2] & O_CREAT) == 0)
    std::erase(errors, ENOSPC);
  return errors;
}

bool mayBeShort(const FileCall& call, const unsigned long long* arguments) {
  switch (call.number) {
  case SYS_read:
  case SYS_write:
    return arguments[2] > 1;
  case SYS_pread64: // on 32-bit processors the offset takes two arguments
  case SYS_pwrite64:
    return arguments[2] > 1 && sizeof(long) == 8;
  case SYS_copy_file_range:
    return arguments[4] > 1;
  case SYS_writev:
    return true;
  default:
    return false;
  }
}

bool isRestartable(const FileCall& call, const unsigned long long* arguments) {
  return mayBeShort(call, arguments) || waitsForLock(call, arguments);
}

bool opensReadOnly(const FileCall& call, const unsigned long long* arguments) {
  const std::string_view name = call.name;
  if (name != "open" && name != "openat")
    return false;
  return (arguments[name == "open" ? 1 : 2] & (O_ACCMODE | O_CREAT | O_TRUNC)) == 0;
}

std::span<const long> harmlessCalls() {
  return harmless;
}

} // namespace Support
