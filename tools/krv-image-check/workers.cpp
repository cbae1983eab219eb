// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/workers.h"

#include "common/posix/file_descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <span>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ImageCheck {

namespace {

using Common::Posix::FileDescriptor;

constexpr auto endingSignals = std::to_array({SIGHUP, SIGINT, SIGTERM});
volatile std::sig_atomic_t receivedSignal = 0;

std::system_error failure(const char* what) {
  return {errno, std::generic_category(), what};
}

bool readAll(int file, void* bytes, std::size_t size) {
  auto* next = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t count = TEMP_FAILURE_RETRY(read(file, next, size));
    if (count <= 0)
      return false;
    next += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

/// MSG_NOSIGNAL: the other side may have died.
bool writeAll(int socket, const void* bytes, std::size_t size) {
  const auto* next = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t count = TEMP_FAILURE_RETRY(send(socket, next, size, MSG_NOSIGNAL));
    if (count <= 0)
      return false;
    next += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

/// A package may make a library allocate without end. The sanitizers reserve more than any limit.
void limitMemory() {
#if !defined(__SANITIZE_ADDRESS__)
  constexpr rlim_t most = rlim_t{2} * 1024 * 1024 * 1024;
  rlimit limit{};
  if (sizeof(void*) > 4 && getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_max > most) {
    limit.rlim_cur = most;
    setrlimit(RLIMIT_AS, &limit);
  }
#endif
  const rlimit noCore{};
  setrlimit(RLIMIT_CORE, &noCore);
}

/// A package may keep a library busy without end. SIGXCPU ends the process.
void limitTime(unsigned seconds) {
  rusage used{};
  rlimit limit{};
  if (getrusage(RUSAGE_SELF, &used) != 0 || getrlimit(RLIMIT_CPU, &limit) != 0)
    return;
  const auto spent = static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec);
  limit.rlim_cur = std::min(spent + seconds + 1, limit.rlim_max);
  setrlimit(RLIMIT_CPU, &limit);
}

void silence() {
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    dup2(nothing, stream);
}

[[noreturn]] void serve(int socket, const WorkerPlan& plan, pid_t parent) {
  for (const int number : endingSignals)
    std::signal(number, SIG_DFL);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent)
    _exit(1);
  limitMemory();
  silence();
  try {
    for (std::uint64_t index = 0; readAll(socket, &index, sizeof index);) {
      limitTime(plan.cpuSeconds);
      const std::string result = plan.work(static_cast<std::size_t>(index));
      const std::uint64_t size = result.size();
      if (!writeAll(socket, &size, sizeof size) || !writeAll(socket, result.data(), result.size()))
        _exit(1);
    }
  } catch (...) {
    _exit(1);
  }
  _exit(0);
}

class Worker {
public:
  Worker(const WorkerPlan& plan, const std::vector<Worker>& others) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
      throw failure("socketpair");
    m_socket = FileDescriptor(ends[0]);
    const FileDescriptor own(ends[1]);
    const pid_t parent = getpid();
    m_process = fork();
    if (m_process < 0)
      throw failure("fork");
    if (m_process > 0)
      return;
    // A worker must see the end of the requests when this process closes them.
    for (const Worker& other : others)
      close(other.socket());
    close(m_socket.get());
    serve(own.get(), plan, parent);
  }

  ~Worker() {
    if (m_process <= 0)
      return;
    kill(m_process, SIGKILL);
    TEMP_FAILURE_RETRY(waitpid(m_process, nullptr, 0));
  }
  Worker(Worker&& other) noexcept
      : m_socket(std::move(other.m_socket)), m_process(std::exchange(other.m_process, -1)), m_index(other.m_index) {}
  Worker& operator=(Worker&& other) noexcept {
    std::swap(m_socket, other.m_socket);
    std::swap(m_process, other.m_process);
    std::swap(m_index, other.m_index);
    return *this;
  }

  int socket() const { return m_socket.get(); }
  std::size_t index() const { return m_index; }

  void request(std::size_t index) {
    m_index = index;
    const std::uint64_t number = index;
    // If the worker has died, there will be no answer either.
    (void)writeAll(m_socket.get(), &number, sizeof number);
  }

  /// Nothing if the worker has died.
  std::optional<std::string> answer() const {
    std::uint64_t size = 0;
    std::string bytes;
    if (!readAll(m_socket.get(), &size, sizeof size))
      return std::nullopt;
    bytes.resize(static_cast<std::size_t>(size));
    return readAll(m_socket.get(), bytes.data(), bytes.size()) ? std::optional(std::move(bytes)) : std::nullopt;
  }

private:
  FileDescriptor m_socket;
  pid_t m_process = -1;
  std::size_t m_index = 0;
};

class Crew {
public:
  explicit Crew(const WorkerPlan& plan) : m_plan(plan), m_results(plan.count) {}

  std::vector<std::optional<std::string>> run() {
    while (m_workers.size() < m_plan.jobs && m_next < m_plan.count)
      hire();
    while (!m_workers.empty())
      for (const std::size_t number : ready())
        take(number);
    return std::move(m_results);
  }

private:
  void hire() {
    m_workers.emplace_back(m_plan, m_workers);
    m_workers.back().request(m_next++);
  }

  /// The workers with an answer, the last first, so that a worker can be removed from the list.
  std::vector<std::size_t> ready() const {
    std::vector<pollfd> files;
    for (const Worker& worker : m_workers)
      files.push_back({.fd = worker.socket(), .events = POLLIN, .revents = 0});
    const int count = poll(files.data(), files.size(), -1);
    if (receivedSignal != 0)
      throw Interrupted{receivedSignal};
    if (count < 0 && errno != EINTR)
      throw failure("poll");
    std::vector<std::size_t> numbers;
    for (std::size_t number = files.size(); count > 0 && number-- > 0;)
      if (files[number].revents != 0)
        numbers.push_back(number);
    return numbers;
  }

  void take(std::size_t number) {
    Worker& worker = m_workers[number];
    std::optional<std::string> answer = worker.answer();
    const bool hasDied = !answer;
    m_results[worker.index()] = std::move(answer);
    if (m_plan.progress)
      m_plan.progress(++m_done);
    if (!hasDied && m_next < m_plan.count)
      return worker.request(m_next++);
    m_workers.erase(m_workers.begin() + static_cast<std::ptrdiff_t>(number));
    if (m_next < m_plan.count)
      hire();
  }

  const WorkerPlan& m_plan;
  std::vector<std::optional<std::string>> m_results;
  std::vector<Worker> m_workers;
  std::size_t m_next = 0;
  std::size_t m_done = 0;
};

} // namespace

std::vector<std::optional<std::string>> doInWorkers(const WorkerPlan& plan) {
  return Crew(plan).run();
}

void noticeSignals() {
  for (const int number : endingSignals) {
    struct sigaction action {};
    // A shell that starts a program in the background lets it ignore some signals.
    if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
      continue;
    action = {};
    action.sa_handler = [](int received) { receivedSignal = received; };
    sigaction(number, &action, nullptr);
  }
}

} // namespace ImageCheck
