// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/real_device.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// Two processes that use the service concurrently.
class TwoClients : public testing::Test {
protected:
  fs::path package(const std::string& name) {
    const fs::path path = m_device.rpm().path() / (name + ".rpm");
    m_device.rpm().build({.name = name}, path);
    Support::sign(path, "alice");
    return path;
  }

  /// Installs the packages one by one, and queries each before and after. Starts when the file "go" exists.
  std::unique_ptr<Support::Process> client(const std::vector<std::string>& names) {
    std::vector<std::string> command{"sh",
                                     "-c",
                                     "program=$1; cd \"$2\"; shift 2; until [ -e go ]; do :; done; "
                                     "for name; do \"$program\" get $name; \"$program\" install \"$PWD/$name.rpm\"; "
                                     "\"$program\" get $name; done 2>&-",
                                     "sh",
                                     Support::program("test-proxy-calls"),
                                     m_device.rpm().path()};
    command.insert(command.end(), names.begin(), names.end());
    return std::make_unique<Support::Process>(command);
  }

  void go() { Support::writeFile(m_device.rpm().path() / "go", ""); }

  RealDevice m_device;
};

TEST_F(TwoClients, InstallTheirPackagesConcurrently) {
  const std::vector<std::string> ones{"apple", "pear", "plum"};
  const std::vector<std::string> others{"bread", "cake", "roll"};
  for (const auto& names : {ones, others})
    for (const std::string& name : names)
      package(name);
  const auto one = client(ones);
  const auto other = client(others);
  go();
  const std::string eachInTurn = "failure\nsuccess\nsuccess\n";
  EXPECT_EQ(one->wait().output, eachInTurn + eachInTurn + eachInTurn);
  EXPECT_EQ(other->wait().output, eachInTurn + eachInTurn + eachInTurn);
  EXPECT_EQ(m_device.client().installed(), (std::vector<std::string>{"apple 1.0-1", "bread 1.0-1", "cake 1.0-1",
                                                                     "pear 1.0-1", "plum 1.0-1", "roll 1.0-1"}));
}

TEST_F(TwoClients, InstallOnePackageOnce) {
  const fs::path path = package("apple");
  const std::vector<std::string> command{Support::program("test-proxy-calls"), "install", path};
  Support::Process one(command);
  Support::Process other(command);
  std::vector<std::string> outputs{one.wait().output, other.wait().output};
  std::sort(outputs.begin(), outputs.end());
  EXPECT_EQ(outputs, (std::vector<std::string>{
                         "[E] Package installation error: This version of the package is installed: apple 1.0-1 over "
                         "1.0-1\nfailure\n",
                         "success\n"}));
  EXPECT_EQ(m_device.service().log(), "[I] Installed: apple 1.0-1\n"
                                      "[I] Install " +
                                          quoted(path) +
                                          "\n"
                                          "[E] Install " +
                                          quoted(path) +
                                          ": SamePackageIsInstalled: This version of the package is installed: "
                                          "apple 1.0-1 over 1.0-1\n");
  EXPECT_EQ(m_device.database(), "apple 1.0-1: /opt/apple /opt/apple/file\n");
}

} // namespace
