// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

inline const std::string tool = "krv-package-signature: ";

/// Runs the tool in a folder with the unsigned package "a.rpm".
class PackageSignatureTool : public testing::Test {
protected:
  PackageSignatureTool() { m_sandbox.build({}, folder() / "a.rpm"); }

  std::filesystem::path folder() const { return m_sandbox.path() / "packages"; }
  const Support::RpmSandbox& sandbox() const { return m_sandbox; }
  std::string package() const { return Support::readFile(folder() / "a.rpm"); }

  Support::ProcessResult runTool(std::vector<std::string> arguments,
                                 const Support::Environment& environment = {}) const {
    arguments.insert(arguments.begin(), Support::program("krv-package-signature"));
    return Support::run(arguments, environment, folder());
  }

  /// Runs "sign" with the key of `name` and further arguments.
  Support::ProcessResult signAs(const std::string& name, const std::vector<std::string>& rest,
                                const Support::Environment& environment = {}) const {
    return runTool(signing(name, rest), environment);
  }

  static std::vector<std::string> signing(const std::string& name, const std::vector<std::string>& rest) {
    std::vector<std::string> arguments = {"sign", "--key", Support::Pki::instance().key(name), "--cert",
                                          Support::Pki::instance().certificate(name)};
    arguments.insert(arguments.end(), rest.begin(), rest.end());
    return arguments;
  }

  Support::ProcessResult verifyTool(const std::vector<std::string>& packages) const {
    std::vector<std::string> arguments = {"verify", "--ca-path", Support::Pki::instance().trustedCa()};
    arguments.insert(arguments.end(), packages.begin(), packages.end());
    return runTool(arguments);
  }

  static std::string previous(const std::string& name) {
    return Support::Pki::instance().key(name).string() + "," + Support::Pki::instance().certificate(name).string();
  }

  /// The names in the folder, to find files that were left behind.
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator(folder()))
      result.push_back(entry.path().filename());
    std::sort(result.begin(), result.end());
    return result;
  }

private:
  Support::RpmSandbox m_sandbox;
};

inline void expectResult(const Support::ProcessResult& result, int status, const std::string& output,
                         const std::string& errors) {
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.output, output);
  EXPECT_EQ(result.errors, errors);
}

/// A controlling terminal for a child process.
class Terminal {
public:
  Terminal() : m_master(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    if (m_master < 0 || grantpt(m_master) != 0 || unlockpt(m_master) != 0)
      throw std::system_error(errno, std::generic_category(), "no terminal");
    m_name = ptsname(m_master);
  }
  ~Terminal() { close(m_master); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// For the child before it starts its program.
  void control() const {
    if (setsid() < 0 || open(m_name.c_str(), O_RDWR | O_CLOEXEC) < 0)
      _exit(125);
  }

  /// Types a line when the child has written text that ends with `prompt` and has switched the echo off.
  void answer(const std::string& prompt, const std::string& line) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    termios settings{};
    std::string seen;
    while (!seen.ends_with(prompt) || tcgetattr(m_master, &settings) != 0 || (settings.c_lflag & ECHO) != 0) {
      seen += text();
      if (std::chrono::steady_clock::now() > deadline)
        throw std::runtime_error("no prompt, but: " + seen);
      std::this_thread::yield();
    }
    if (write(m_master, (line + '\n').data(), line.size() + 1) != static_cast<ssize_t>(line.size()) + 1)
      throw std::system_error(errno, std::generic_category(), "cannot type");
  }

  /// Returns the output of the child on the terminal.
  std::string text() const {
    char bytes[1000];
    const ssize_t size = read(m_master, bytes, sizeof bytes);
    return {bytes, size < 0 ? 0 : static_cast<std::size_t>(size)};
  }

private:
  int m_master;
  std::string m_name;
};
