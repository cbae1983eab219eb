// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/filesystem/odd_system.h"

#include <cerrno>
#include <cstdarg>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

OddSystem& oddSystem() {
  static OddSystem system;
  return system;
}

int failing(int error) {
  errno = error;
  return -1;
}

/// Not syscall(2): on 32-bit processors the offset and the size take two arguments each.
int reallyFallocate(int descriptor, int mode, off_t offset, off_t size) {
  return reinterpret_cast<int (*)(int, int, off_t, off_t)>(dlsym(RTLD_NEXT, "fallocate64"))(descriptor, mode, offset,
                                                                                            size);
}

int reallyOpen(const char* path, int flags, mode_t mode) {
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

extern "C" {

/// By default AddressSanitizer ends the program if an allocation fails.
const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept {
  if (oddSystem().getxattr)
    return oddSystem().getxattr(name, value, size);
  return syscall(SYS_getxattr, path, name, value, size);
}

ssize_t fgetxattr(int descriptor, const char* name, void* value, size_t size) noexcept {
  if (oddSystem().getxattr)
    return oddSystem().getxattr(name, value, size);
  return syscall(SYS_fgetxattr, descriptor, name, value, size);
}

ssize_t listxattr(const char* path, char* list, size_t size) noexcept {
  if (oddSystem().listxattr)
    return oddSystem().listxattr(list, size);
  return syscall(SYS_listxattr, path, list, size);
}

ssize_t flistxattr(int descriptor, char* list, size_t size) noexcept {
  if (oddSystem().listxattr)
    return oddSystem().listxattr(list, size);
  return syscall(SYS_flistxattr, descriptor, list, size);
}

int lsetxattr(const char* path, const char* name, const void* value, size_t size, int flags) noexcept {
  if (oddSystem().lsetxattr)
    return oddSystem().lsetxattr(path, name, value, size, flags);
  return static_cast<int>(syscall(SYS_lsetxattr, path, name, value, size, flags));
}

ssize_t copy_file_range(int from, off64_t* fromOffset, int to, off64_t* toOffset, size_t size, unsigned flags) {
  if (oddSystem().copyFileRange)
    return oddSystem().copyFileRange(from, to, size);
  return syscall(SYS_copy_file_range, from, fromOffset, to, toOffset, size, flags);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
  if (oddSystem().read)
    return oddSystem().read(descriptor, buffer, size);
  return syscall(SYS_read, descriptor, buffer, size);
}

int fallocate(int descriptor, int mode, off_t offset, off_t size) {
  if (oddSystem().fallocate)
    return oddSystem().fallocate(descriptor, mode, offset, size);
  return reallyFallocate(descriptor, mode, offset, size);
}

int open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (oddSystem().open)
    return oddSystem().open(path, flags, mode);
  return reallyOpen(path, flags, mode);
}

int close(int descriptor) {
  if (oddSystem().close)
    return oddSystem().close(descriptor);
  return static_cast<int>(syscall(SYS_close, descriptor));
}

ssize_t getrandom(void* buffer, size_t size, unsigned flags) {
  if (oddSystem().getrandom)
    return oddSystem().getrandom(buffer, size, flags);
  return syscall(SYS_getrandom, buffer, size, flags);
}

group* getgrnam(const char* name) {
  if (oddSystem().getgrnam)
    return oddSystem().getgrnam(name);
  return reinterpret_cast<group* (*)(const char*)>(dlsym(RTLD_NEXT, "getgrnam"))(name);
}

} // extern "C"
