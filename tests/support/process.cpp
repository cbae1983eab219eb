// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process.h"

#include "tests/support/wait.h"

#include <cstdlib>
#include <stdexcept>
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

[[noreturn]] void become(const std::vector<std::string>& arguments, const Environment& environment,
                         const std::filesystem::path& workingDirectory, int output, int errors) {
  // A test that dies takes its children with it.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  for (const auto& [name, value] : environment) {
    if (value)
      setenv(name.c_str(), value->c_str(), 1);
    else
      unsetenv(name.c_str());
  }
  if (chdir(workingDirectory.c_str()) != 0)
    _exit(126);
  std::vector<char*> pointers;
  for (const std::string& argument : arguments)
    pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  execvp(pointers[0], pointers.data());
  _exit(127);
}

} // namespace

Process::Process(const std::vector<std::string>& arguments, const Environment& environment,
                 const std::filesystem::path& workingDirectory)
    : m_output(memoryFile("output")), m_errors(memoryFile("errors")) {
  m_id = fork();
  if (m_id < 0)
    throw std::system_error(errno, std::generic_category(), "fork");
  if (m_id == 0)
    become(arguments, environment, workingDirectory, m_output, m_errors);
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
