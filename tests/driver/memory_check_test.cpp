// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Support::Pki;
using Support::readFile;
using Support::writeFile;

/// Runs the programs under valgrind: their results must be the usual ones, without errors and leaks.
class MemoryCheck : public testing::Test {
protected:
  void SetUp() override {
    if (Device::isSanitized())
      GTEST_SKIP() << "valgrind cannot run what is built with AddressSanitizer";
    if (Support::run({"valgrind", "--version"}).status != 0)
      GTEST_SKIP() << "valgrind is not installed";
  }

  static std::vector<std::string> checked(const std::string& program, const std::vector<std::string>& arguments = {}) {
    std::vector<std::string> command = {"valgrind",
                                        "--quiet",
                                        "--error-exitcode=99",
                                        "--leak-check=full",
                                        "--errors-for-leak-kinds=definite,possible",
                                        "--num-callers=40",
                                        "--suppressions=" KRV_SUPPRESSIONS,
                                        Support::program(program)};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
  }

  void expectClean(const std::string& program, const std::vector<std::string>& arguments, int status) const {
    const Support::ProcessResult result = Support::run(checked(program, arguments));
    EXPECT_EQ(result.status, status) << result.output << result.errors;
  }

  Device m_device;
};

TEST_F(MemoryCheck, FindsNothingInARun) {
  m_device.add({.name = "good"}, "alice-3", {"alice", "alice-2"});
  m_device.add({.name = "removed"});
  m_device.add({.name = "older"});
  m_device.add({.name = "update", .version = "2.0"});
  m_device.add({.name = "unsigned"}, "");
  const fs::path whole = m_device.add({.name = "whole"});
  const std::string bytes = readFile(whole);
  const auto addDamaged = [&](const std::string& name, const std::string& damaged) {
    writeFile(m_device.preinstallDirectory() / name, damaged);
  };
  addDamaged("text", "This is no package.\n");
  addDamaged("cut", bytes.substr(0, bytes.size() / 2));
  addDamaged("flipped", std::string(bytes).replace(Support::mainHeaderOffset(bytes) + 200, 1, "\xff"));
  const std::size_t signatures = bytes.find("\x2a\x86\x48\x86\xf7\x0d\x01\x07\x02");
  addDamaged("signatures", std::string(bytes).replace(signatures + 20, 1, "\xff"));
  const std::string key = Pki::instance().keyId("alice");
  writeFile(m_device.registry(), "timestamp=1 event=R package=removed keyid=" + key + "\nnonsense\n");
  m_device.service().hasInstalled("older", "2.0-1", key);
  m_device.service().hasInstalled("update", "1.0-1", key);
  m_device.service().onInstall(whole).fail("velta.KRV.Error.Internal", "No");

  const Device::Run expected = m_device.run();
  Support::Process tool(checked("krv-pre-installer"), {{"KRV_ROOT_FS", m_device.root().string()}});
  const Device::Run run = m_device.finish(tool);
  EXPECT_EQ(run.status, 0) << tool.wait().errors;
  EXPECT_EQ(run.log, expected.log);
}

TEST_F(MemoryCheck, FindsNothingInARunWithoutAService) {
  m_device.removeService();
  expectClean("krv-pre-installer", {}, 1);
}

TEST_F(MemoryCheck, FindsNothingInTheSignatureTool) {
  const std::string package = m_device.add({}, "");
  const std::string text = m_device.root() / "text";
  writeFile(text, "This is no package.\n");
  const Pki& pki = Pki::instance();
  expectClean("krv-package-signature",
              {"sign", "--key", pki.key("alice-2"), "--cert", pki.certificate("alice-2"), "--previous",
               pki.key("alice").string() + "," + pki.certificate("alice").string(), package},
              0);
  expectClean("krv-package-signature", {"show", package, text}, 1);
  expectClean("krv-package-signature", {"show", "--json", package}, 0);
  expectClean("krv-package-signature", {"verify", "--ca-path", pki.trustedCa(), package, text}, 1);
  writeFile(package, readFile(package) + "x");
  expectClean("krv-package-signature", {"verify", "--ca-path", pki.trustedCa(), package}, 1);
}

} // namespace
