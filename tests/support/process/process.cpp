// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/process.h"

#include "tests/support/process/wait.h"

#include <stdexcept>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Support {

namespace {

int memoryFile(const char* name) {
  const int descriptor = memfd_create(name, MFD_CLOEXEC);
  if (descriptor < 0)
    throw std::system_error(errno, std::generic_category(), "memfd_create");
  return descriptor;
}

std::string contentOf(int descriptor) {
  std::string content(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
  const ssize_t count = pread(descriptor, content.data(), content.size(), 0);
  content.resize(static_cast<std::size_t>(count));
  return content;
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts)
    pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> childEnvironment(const Environment& changes) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    if (!changes.contains(std::string(text.substr(0, text.find('=')))))
      variables.emplace_back(text);
  }
  for (const auto& [name, value] : changes) {
    if (value)
      variables.push_back(name + "=" + *value);
  }
  return variables;
}

/// Everything is prepared before the fork: the child of a process with threads may only make system calls, because a
/// lock of another thread stays locked in the child.
[[noreturn]] void become(char* const* arguments, char** environment, const char* workingDirectory, int output,
                         int errors, const std::function<void()>& beforeStart) {
  // If the test dies, its children die too.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(output, STDOUT_FILENO); // first, because the file has the number 0 if this process has no standard input
  dup2(errors, STDERR_FILENO);
  close(STDIN_FILENO);
  open("/dev/null", O_RDONLY);
  // A shell lets its background jobs ignore these.
  for (const int number : {SIGINT, SIGQUIT})
    ::signal(number, SIG_DFL);
  if (chdir(workingDirectory) != 0)
    _exit(126);
  if (beforeStart)
    beforeStart();
  environ = environment;
  execvp(arguments[0], arguments);
  _exit(127);
}

} // namespace

Process::Process(const std::vector<std::string>& arguments, const Environment& environment,
                 const std::filesystem::path& workingDirectory, const std::function<void()>& beforeStart)
    : m_output(memoryFile("output")), m_errors(memoryFile("errors")) {
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<std::string> variables = childEnvironment(environment);
  std::vector<char*> variablePointers = pointersTo(variables);
  m_id = fork();
  if (m_id < 0)
    throw std::system_error(errno, std::generic_category(), "fork");
  if (m_id == 0)
    become(argumentPointers.data(), variablePointers.data(), workingDirectory.c_str(), m_output, m_errors, beforeStart);
}

Process::~Process() {
  if (isRunning()) {
    ::kill(m_id, SIGKILL);
    waitpid(m_id, nullptr, 0);
  }
  close(m_output);
  close(m_errors);
}

void Process::signal(int number) const {
  if (!m_status)
    ::kill(m_id, number);
}

bool Process::isRunning() {
  int status = 0;
  if (!m_status && waitpid(m_id, &status, WNOHANG) == m_id)
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return !m_status;
}

std::string Process::outputSoFar() const {
  return contentOf(m_output);
}

ProcessResult Process::wait() {
  if (!waitUntil([this] { return !isRunning(); })) {
    ::kill(m_id, SIGKILL);
    throw std::runtime_error("the process does not end; so far it wrote: " + contentOf(m_output) + contentOf(m_errors));
  }
  return {*m_status, contentOf(m_output), contentOf(m_errors)};
}

ProcessResult run(const std::vector<std::string>& arguments, const Environment& environment,
                  const std::filesystem::path& workingDirectory) {
  return Process(arguments, environment, workingDirectory).wait();
}

std::string runOrThrow(const std::vector<std::string>& arguments, const Environment& environment) {
  ProcessResult result = run(arguments, environment);
  if (result.status != 0)
    throw std::runtime_error(arguments[0] + " ended with " + std::to_string(result.status) + "\n" + result.output +
                             result.errors);
  return result.output;
}

std::filesystem::path program(const std::string& name) {
  return std::filesystem::path(KRV_BINARY_DIRECTORY) / name;
}

} // namespace Support
