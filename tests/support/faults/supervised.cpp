// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/faults/supervised.h"

#include "common/posix/file_descriptor.h"
#include "tests/support/faults/system_calls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fnmatch.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace Support {

namespace {

using Common::Posix::FileDescriptor;

/// A message that carries one descriptor, see unix(7).
class DescriptorMessage {
public:
  DescriptorMessage() {
    m_header.msg_iov = &m_part;
    m_header.msg_iovlen = 1;
    m_header.msg_control = m_control.data();
    m_header.msg_controllen = m_control.size();
  }

  bool send(int channel, int descriptor) {
    cmsghdr* const head = CMSG_FIRSTHDR(&m_header);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(head), &descriptor, sizeof descriptor);
    return sendmsg(channel, &m_header, 0) == 1;
  }

  /// Returns -1 if the other end is closed without sending.
  int receive(int channel) {
    int descriptor = -1;
    if (recvmsg(channel, &m_header, MSG_CMSG_CLOEXEC) == 1 && CMSG_FIRSTHDR(&m_header) != nullptr)
      std::memcpy(&descriptor, CMSG_DATA(CMSG_FIRSTHDR(&m_header)), sizeof descriptor);
    return descriptor;
  }

private:
  char m_byte = 0;
  iovec m_part{.iov_base = &m_byte, .iov_len = 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> m_control{};
  msghdr m_header{};
};

sock_filter statement(unsigned code, std::uint32_t value) {
  return {static_cast<std::uint16_t>(code), 0, 0, value};
}

sock_filter skipUnless(std::uint32_t value, std::uint8_t distance) {
  return {BPF_JMP | BPF_JEQ | BPF_K, 0, distance, value};
}

/// Allows harmless calls and asks the supervisor about all others. sendmsg is allowed too, because it passes the
/// listener to the supervisor, which cannot answer before. The project's programs do not send messages from files.
std::vector<sock_filter> makeFilter() {
  std::vector<sock_filter> filter = {statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  const auto pass = [&](long number) {
    filter.push_back(skipUnless(static_cast<std::uint32_t>(number), 1));
    filter.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  };
  for (const long number : harmlessCalls())
    pass(number);
  pass(SYS_sendmsg);
#ifdef SYS_socketcall // i386: the C library makes all socket calls through it
  pass(SYS_socketcall);
#endif
  filter.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  return filter;
}

/// Puts the calling process under supervision. Returns -1 if the kernel refuses.
int install(const std::vector<sock_filter>& filter) {
  const sock_fprog program{.len = static_cast<unsigned short>(filter.size()),
                           .filter = const_cast<sock_filter*>(filter.data())};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
    return -1;
  return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

class Supervisor {
public:
  Supervisor(int listener, pid_t process, const std::filesystem::path& folder, const std::optional<Fault>& fault,
             const BeforeCall& beforeCall)
      : m_listener(listener), m_process(process), m_folder(folder.filename().string()), m_fault(fault),
        m_beforeCall(beforeCall) {}

  void serveUntilTheEnd() {
    constexpr int silence = 20'000;
    pollfd ready{.fd = m_listener, .events = POLLIN, .revents = 0};
    while (poll(&ready, 1, silence) == 1 && (ready.revents & POLLIN) != 0)
      serveOne();
    if ((ready.revents & POLLHUP) == 0)
      throw std::runtime_error("the supervised process makes no calls and does not end");
  }

  SupervisedResult result;

private:
  void serveOne() {
    seccomp_notif request{};
    if (ioctl(m_listener, SECCOMP_IOCTL_NOTIF_RECV, &request) != 0)
      return; // the process was killed meanwhile
    const FileCall* const call = findFileCall(request.data.nr);
    if (call == nullptr && request.data.nr != SYS_exit_group)
      result.unknownCalls.insert(request.data.nr);
    if (m_killsNext == request.pid)
      kill(m_process, SIGKILL);
    else if (call == nullptr || !meets(*call, request))
      answer(request, 0);
  }

  /// Records a call on a file of the folder. Returns true if the call gets the fault, which is its answer.
  bool meets(const FileCall& call, const seccomp_notif& request) {
    std::string path = pathOf(call.file, request);
    std::string otherPath = pathOf(call.otherFile, request);
    if (path.find(m_folder) == path.npos)
      std::swap(path, otherPath);
    if (path.find(m_folder) == path.npos)
      return false;
    const unsigned long long* const arguments = request.data.args;
    const std::size_t thread = m_threads.emplace(request.pid, m_threads.size()).first->second;
    const auto number = static_cast<std::size_t>(std::ranges::count(result.calls, thread, &SeenCall::thread));
    result.calls.push_back({.name = call.name,
                            .path = path,
                            .otherPath = otherPath,
                            .opensReadOnly = opensReadOnly(call, arguments),
                            .errors = errorsOf(call, arguments),
                            .mayBeShort = mayBeShort(call, arguments),
                            .isRestartable = isRestartable(call, arguments),
                            .thread = thread,
                            .number = number,
                            .process = m_process});
    const int error = m_beforeCall ? m_beforeCall(result.calls.back()) : 0;
    if (error != 0) {
      fail(request, error);
      return true;
    }
    if (!m_fault || m_fault->call.thread != thread || m_fault->call.number != number)
      return false;
    result.metFault = m_fault->call.name == call.name;
    if (m_fault->kind == Fault::Kind::KillAfter) {
      m_killsNext = request.pid;
      return false;
    }
    if (m_fault->kind == Fault::Kind::KillBefore) {
      kill(m_process, SIGKILL);
      return true;
    }
    if (m_fault->kind == Fault::Kind::Short)
      answerShort(request);
    else
      fail(request, m_fault->error);
    return true;
  }

  void fail(const seccomp_notif& request, int error) const {
    if (request.data.nr == SYS_close)
      replaceFile(request, static_cast<int>(request.data.args[0]));
    answer(request, error);
  }

  /// A call that is answered with an error is not made. But close(2) closes the file even if it fails, so its
  /// descriptor is replaced by another file.
  void replaceFile(const seccomp_notif& request, int descriptor) const {
    const FileDescriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    seccomp_notif_addfd addition{};
    addition.id = request.id;
    addition.flags = SECCOMP_ADDFD_FLAG_SETFD;
    addition.srcfd = static_cast<std::uint32_t>(nothing.get());
    addition.newfd = static_cast<std::uint32_t>(descriptor);
    if (ioctl(m_listener, SECCOMP_IOCTL_NOTIF_ADDFD, &addition) < 0)
      throw std::system_error(errno, std::generic_category(), "a file of the supervised process cannot be closed");
  }

  /// Makes the call in place of the process, for one byte. Returns its result, or -errno if it fails.
  ssize_t transferOneByte(const seccomp_notif& request) const {
    const auto& arguments = request.data.args;
    const FileDescriptor file = fileOf(arguments[0]);
    const auto offset = static_cast<off_t>(arguments[3]); // of pread(2) and pwrite(2)
    const auto outcome = [](ssize_t count) { return count < 0 ? -errno : count; };
    char byte = 0;
    switch (request.data.nr) {
    case SYS_read:
      return give(request, byte, outcome(read(file.get(), &byte, 1)));
    case SYS_pread64:
      return give(request, byte, outcome(pread(file.get(), &byte, 1, offset)));
    case SYS_pwrite64:
      take(request, arguments[1], &byte, 1);
      return outcome(pwrite(file.get(), &byte, 1, offset));
    case SYS_copy_file_range: // the project passes no offsets
      return outcome(copy_file_range(file.get(), nullptr, fileOf(arguments[2]).get(), nullptr, 1, 0));
    default:
      take(request, firstByteToWrite(request), &byte, 1);
      return outcome(write(file.get(), &byte, 1));
    }
  }

  static std::uint64_t firstByteToWrite(const seccomp_notif& request) {
    if (request.data.nr != SYS_writev)
      return request.data.args[1];
    iovec part{};
    for (std::uint64_t place = request.data.args[1]; part.iov_len == 0; place += sizeof part)
      take(request, place, &part, sizeof part);
    return reinterpret_cast<std::uintptr_t>(part.iov_base);
  }

  /// Copies from the memory of the process.
  static void take(const seccomp_notif& request, std::uint64_t address, void* bytes, std::size_t size) {
    checked(pread(memoryOf(request).get(), bytes, size, static_cast<off_t>(address)));
  }

  /// Copies the byte that a call has read, if there was one, into the buffer of the process. Returns `outcome`.
  static ssize_t give(const seccomp_notif& request, const char& byte, ssize_t outcome) {
    if (outcome == 1)
      checked(pwrite(memoryOf(request).get(), &byte, 1, static_cast<off_t>(request.data.args[1])));
    return outcome;
  }

  static ssize_t checked(ssize_t result) {
    if (result < 0)
      throw std::system_error(errno, std::generic_category(), "the call cannot be made for the supervised process");
    return result;
  }

  /// A duplicate of the process's descriptor: its reads and writes move the position for both.
  FileDescriptor fileOf(std::uint64_t number) const {
    const FileDescriptor process(static_cast<int>(checked(syscall(SYS_pidfd_open, m_process, 0))));
    return FileDescriptor(static_cast<int>(checked(syscall(SYS_pidfd_getfd, process.get(), number, 0))));
  }

  static FileDescriptor memoryOf(const seccomp_notif& request) {
    const std::string path = "/proc/" + std::to_string(request.pid) + "/mem";
    return FileDescriptor(static_cast<int>(checked(open(path.c_str(), O_RDWR | O_CLOEXEC))));
  }

  void answerShort(const seccomp_notif& request) const {
    const ssize_t outcome = transferOneByte(request);
    send({.id = request.id,
          .val = outcome < 0 ? 0 : outcome,
          .error = outcome < 0 ? static_cast<int>(outcome) : 0,
          .flags = 0});
  }

  /// The kernel makes the call, unless there is an error.
  void answer(const seccomp_notif& request, int error) const {
    send({.id = request.id,
          .val = 0,
          .error = -error,
          .flags = static_cast<std::uint32_t>(error == 0 ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0)});
  }

  void send(seccomp_notif_resp response) const {
    // Fails if the process was killed meanwhile; then no answer is needed.
    ioctl(m_listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
  }

  std::string pathOf(const FileCall::Place& place, const seccomp_notif& request) const {
    const std::string ofProcess = "/proc/" + std::to_string(request.pid) + "/";
    const std::string text =
        place.path < 0 ? "" : textAt(ofProcess, request.data.args[static_cast<std::size_t>(place.path)]);
    constexpr std::string_view own = "/proc/self/";
    if (text.starts_with(own)) // a path through a descriptor
      return linkText(ofProcess + text.substr(own.size()));
    if (text.starts_with('/'))
      return text;
    const int descriptor = place.descriptor < 0
                               ? AT_FDCWD
                               : static_cast<int>(request.data.args[static_cast<std::size_t>(place.descriptor)]);
    if (descriptor == AT_FDCWD && place.path < 0)
      return {};
    const std::string base =
        linkText(ofProcess + (descriptor == AT_FDCWD ? "cwd" : "fd/" + std::to_string(descriptor)));
    return text.empty() ? base : base + "/" + text;
  }

  static std::string linkText(const std::string& link) {
    std::array<char, PATH_MAX> text;
    const ssize_t size = readlink(link.c_str(), text.data(), text.size());
    return {text.data(), size < 0 ? 0 : static_cast<std::size_t>(size)};
  }

  /// The string at an address in the process; empty for a null pointer.
  static std::string textAt(const std::string& ofProcess, std::uint64_t address) {
    std::array<char, PATH_MAX> text{};
    const FileDescriptor memory(open((ofProcess + "mem").c_str(), O_RDONLY | O_CLOEXEC));
    // The read is short if the mapped memory ends before the buffer is full; the string ends before.
    if (address != 0 && pread(memory.get(), text.data(), text.size() - 1, static_cast<off_t>(address)) < 0)
      throw std::system_error(errno, std::generic_category(), "the supervised process cannot be read");
    return text.data();
  }

  int m_listener;
  pid_t m_process;
  std::string m_folder;
  std::optional<Fault> m_fault;
  BeforeCall m_beforeCall;
  std::map<std::uint32_t, std::size_t> m_threads;
  std::uint32_t m_killsNext = 0;
};

} // namespace

BeforeCall beforeNth(const std::string& name, int nth, const std::string& path, BeforeCall action) {
  return [name, path, action = std::move(action), left = nth](const SeenCall& call) mutable {
    const bool fits = call.name.starts_with(name) && fnmatch(path.c_str(), call.path.c_str(), 0) == 0;
    return fits && --left == 0 ? action(call) : 0;
  };
}

BeforeCall failNth(const std::string& name, int nth, const std::string& path, int error) {
  return beforeNth(name, nth, path, [error](const SeenCall&) { return error; });
}

bool canSupervise() {
  try {
    return runSupervised({"true"}, {}, "/none").process.status == 0;
  } catch (const std::system_error&) {
    return false;
  }
}

SupervisedResult runSupervised(const std::vector<std::string>& arguments, const Environment& environment,
                               const std::filesystem::path& folder, const std::optional<Fault>& fault,
                               const BeforeCall& beforeCall) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::system_error(errno, std::generic_category(), "socketpair");
  const FileDescriptor here(ends[0]);
  FileDescriptor there(ends[1]);
  const std::vector<sock_filter> filter = makeFilter();
  Process process(arguments, environment, ".", [&] {
    DescriptorMessage message;
    if (!message.send(there.get(), install(filter)))
      _exit(125);
  });
  there = FileDescriptor();
  const FileDescriptor listener(DescriptorMessage().receive(here.get()));
  if (!listener)
    throw std::system_error(ENOSYS, std::generic_category(), "the kernel does not let processes be supervised");
  Supervisor supervisor(listener.get(), process.id(), folder, fault, beforeCall);
  supervisor.serveUntilTheEnd();
  supervisor.result.process = process.wait();
  return std::move(supervisor.result);
}

} // namespace Support
