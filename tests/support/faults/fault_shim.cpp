// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// A library for LD_PRELOAD that makes one call of the C library fail. The variable KRV_FAULT names it:
//
//   KRV_FAULT="CALL N WHAT PATH"
//
// Of the CALLs on a path that contains PATH the N-th, counted from 1, is hit, and with "N+" all later ones too. WHAT is
// the errno it fails with ("EIO") or a signal that the process gets just before the call goes through ("SIGKILL",
// "SIGSTOP"). CALL is one of the names given to hit() below; each stands for all the functions that do the same. For
// calls on a descriptor the path is that of the open file. Only calls across library boundaries are seen: what fopen()
// does inside the C library is one "open".

// Where these are set, the header files give open() the name open64(), which is here as well.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

struct Fault {
  std::string_view call;
  unsigned long nth = 0;
  bool isForLaterToo = false;
  std::string_view what;
  std::string_view path;
};

std::string_view nextWord(std::string_view& text) {
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size() < text.size() ? word.size() + 1 : word.size());
  return word;
}

Fault readFault() {
  const char* variable = std::getenv("KRV_FAULT");
  if (variable == nullptr)
    return {};
  std::string_view text = variable;
  Fault fault;
  fault.call = nextWord(text);
  const std::string_view number = nextWord(text);
  fault.nth = std::strtoul(number.data(), nullptr, 10);
  fault.isForLaterToo = number.ends_with('+');
  fault.what = nextWord(text);
  fault.path = text;
  return fault;
}

int errnoNamed(std::string_view name) {
  for (int number = 1; number < 4096; ++number) {
    const char* candidate = strerrorname_np(number);
    if (candidate != nullptr && name == candidate)
      return number;
  }
  return 0;
}

int signalNamed(std::string_view name) {
  for (int number = 1; number < NSIG; ++number) {
    const char* candidate = sigabbrev_np(number);
    if (candidate != nullptr && name.starts_with("SIG") && name.substr(3) == candidate)
      return number;
  }
  return 0;
}

/// Whether this call has to fail; errno is set then.
bool hit(std::string_view call, const char* path) {
  static const Fault fault = readFault();
  static unsigned long count = 0;
  if (fault.call != call || std::strstr(path, fault.path.data()) == nullptr || ++count < fault.nth ||
      (count > fault.nth && !fault.isForLaterToo))
    return false;
  if (const int number = signalNamed(fault.what)) {
    raise(number);
    return false;
  }
  errno = errnoNamed(fault.what);
  if (errno == 0)
    std::abort(); // a slip in the test
  return true;
}

bool hit(std::string_view call, int descriptor) {
  char link[64];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  char path[4096];
  const ssize_t length = readlink(link, path, sizeof path - 1);
  path[length < 0 ? 0 : length] = '\0';
  return hit(call, path);
}

/// The function that this library stands in front of.
template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

mode_t modeArgument(int flags, std::va_list arguments) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

bool isLockCommand(int command) {
  for (const int lockCommand : {F_SETLK, F_SETLKW, F_SETLK64, F_SETLKW64, F_OFD_SETLK, F_OFD_SETLKW}) {
    if (command == lockCommand)
      return true;
  }
  return false;
}

int openOr(const char* function, const char* path, int flags, mode_t mode) {
  return hit("open", path) ? -1 : next<int(const char*, int, ...)>(function)(path, flags, mode);
}

int openAtOr(const char* function, int directory, const char* path, int flags, mode_t mode) {
  return hit("open", path) ? -1 : next<int(int, const char*, int, ...)>(function)(directory, path, flags, mode);
}

int fcntlOr(const char* function, int descriptor, int command, void* argument) {
  if (isLockCommand(command) && hit("fcntl", descriptor))
    return -1;
  return next<int(int, int, ...)>(function)(descriptor, command, argument);
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openOr("open", path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openOr("open64", path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openAtOr("openat", directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openAtOr("openat64", directory, path, flags, mode);
}

std::FILE* fopen(const char* path, const char* mode) {
  return hit("open", path) ? nullptr : next<std::FILE*(const char*, const char*)>("fopen")(path, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
  return hit("open", path) ? nullptr : next<std::FILE*(const char*, const char*)>("fopen64")(path, mode);
}

int fcntl(int descriptor, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return fcntlOr("fcntl", descriptor, command, argument);
}

int fcntl64(int descriptor, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return fcntlOr("fcntl64", descriptor, command, argument);
}

/// The one of 32-bit programs that know times after 2038.
int __fcntl_time64(int descriptor, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return fcntlOr("__fcntl_time64", descriptor, command, argument);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
  return hit("read", descriptor) ? -1 : next<ssize_t(int, void*, size_t)>("read")(descriptor, buffer, size);
}

ssize_t write(int descriptor, const void* buffer, size_t size) {
  return hit("write", descriptor) ? -1 : next<ssize_t(int, const void*, size_t)>("write")(descriptor, buffer, size);
}

ssize_t writev(int descriptor, const iovec* parts, int count) {
  return hit("write", descriptor) ? -1 : next<ssize_t(int, const iovec*, int)>("writev")(descriptor, parts, count);
}

// The descriptor is closed all the same, as the system does it.
int close(int descriptor) {
  const bool fails = hit("close", descriptor);
  const int error = errno;
  const int result = next<int(int)>("close")(descriptor);
  if (!fails)
    return result;
  errno = error;
  return -1;
}

int fclose(std::FILE* file) {
  const bool fails = hit("close", fileno(file));
  const int error = errno;
  const int result = next<int(std::FILE*)>("fclose")(file);
  if (!fails)
    return result;
  errno = error;
  return EOF;
}

int syncfs(int descriptor) noexcept {
  return hit("syncfs", descriptor) ? -1 : next<int(int)>("syncfs")(descriptor);
}

int rename(const char* from, const char* to) noexcept {
  return hit("rename", from) ? -1 : next<int(const char*, const char*)>("rename")(from, to);
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
  return hit("rename", from)
             ? -1
             : next<int(int, const char*, int, const char*)>("renameat")(fromDirectory, from, toDirectory, to);
}

int mkdir(const char* path, mode_t mode) noexcept {
  return hit("mkdir", path) ? -1 : next<int(const char*, mode_t)>("mkdir")(path, mode);
}

int stat(const char* path, struct stat* status) noexcept {
  return hit("stat", path) ? -1 : next<int(const char*, struct stat*)>("stat")(path, status);
}

int stat64(const char* path, struct stat64* status) noexcept {
  return hit("stat", path) ? -1 : next<int(const char*, struct stat64*)>("stat64")(path, status);
}

} // extern "C"
