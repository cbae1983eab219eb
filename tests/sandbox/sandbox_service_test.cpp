// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "service/krv_proxy.h"
#include "tests/support/captured_log.h"
#include "tests/support/pki.h"
#include "tests/support/private_bus.h"
#include "tests/support/process.h"
#include "tests/support/rpm_sandbox.h"
#include "tests/support/wait.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <signal.h>

namespace {

using Support::PackageInput;

/// The service as a child process, and a client of it.
class SandboxService : public testing::Test {
protected:
  SandboxService() {
    std::filesystem::create_directories(root());
    Support::trustAuthorityUnder(root());
    m_service = std::make_unique<Support::Process>(command());
    EXPECT_TRUE(Support::waitUntil([this] { return m_service->outputSoFar() == "ready\n"; }));
  }

  std::filesystem::path root() const { return m_rpm.path() / "root"; }
  std::vector<std::string> command() const { return {Support::program("krv-sandbox-service"), "--root", root()}; }

  std::filesystem::path package(const PackageInput& input, const std::string& developer = "alice") {
    const std::filesystem::path path = m_rpm.path() / "package.rpm";
    m_rpm.build(input, path);
    Support::sign(path, developer);
    return path;
  }

  /// The log of an installation, and after it the result.
  std::string installation(const std::filesystem::path& path) {
    const Support::CapturedLog log;
    const bool result = KrvProxy::create().value().install(path);
    return log.text() + (result ? "true" : "false");
  }

  std::optional<InstalledPackage> installed(const std::string& name) {
    return KrvProxy::create().value().getPackage(name);
  }

  Support::ProcessResult call(const std::string& member, const std::string& argument) {
    return Support::run({"dbus-send", "--system", "--print-reply", "--dest=velta.KRV", "/velta/KRV",
                         "velta.KRV." + member, "string:" + argument});
  }

  /// The registry with T for each time.
  std::string registry() const {
    return std::regex_replace(Support::readFile(root() / "var/lib/krv/registry"), std::regex("timestamp=[0-9]+"), "T");
  }

  Support::RpmSandbox m_rpm;
  Support::PrivateBus m_bus;
  std::unique_ptr<Support::Process> m_service;
};

TEST_F(SandboxService, DescribesWhatItInstalled) {
  EXPECT_EQ(installation(package({.version = "1.2", .release = "3"})), "true");
  const std::string keyId = Support::Pki::instance().keyId("alice");
  const auto found = installed("sample");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->version, "1.2-3");
  EXPECT_EQ(found->developerKeyId, keyId);
  EXPECT_EQ(registry(), "T event=I package=sample keyid=" + keyId + "\n");
}

TEST_F(SandboxService, GivesTheFiveFactsOfAPackage) {
  installation(package({}));
  std::string reply = call("GetPackage", "sample").output;
  for (const std::string entry :
       {"\"general.name\"\n         string \"sample\"", "\"general.version\"\n         string \"1.0-1\"",
        "\"general.source\"\n         string \".pre.installed.apps\"",
        "\"certificate.subgroup\"\n         string \"regular\""})
    EXPECT_NE(reply.find(entry), std::string::npos) << reply;
}

TEST_F(SandboxService, KnowsNothingElse) {
  EXPECT_EQ(installed("sample"), std::nullopt);
  EXPECT_EQ(call("GetPackage", "sample").errors,
            "Error velta.KRV.Error.PackageNotExist: The package is not installed: sample\n");
  EXPECT_EQ(call("Remove", "sample").errors,
            "Error velta.KRV.Error.PackageNotExist: The package is not installed: sample\n");
}

TEST_F(SandboxService, ForgetsWhatIsRemovedAndWritesItDown) {
  installation(package({}));
  EXPECT_EQ(call("Remove", "sample").status, 0);
  EXPECT_EQ(installed("sample"), std::nullopt);
  EXPECT_EQ(registry(), "T event=R package=sample keyid=" + Support::Pki::instance().keyId("alice") + "\n");
}

TEST_F(SandboxService, RefusesWhatItCannotTrust) {
  EXPECT_EQ(installation(package({}, "foreign")),
            "[E] Package installation error: Package is signed with a non-legal developer certificate\nfalse");
  EXPECT_EQ(installation(m_rpm.path() / "missing.rpm"),
            "[E] Package installation error: The package is not a file that exists: " +
                (m_rpm.path() / "missing.rpm").string() + "\nfalse");
  EXPECT_EQ(installed("sample"), std::nullopt);
}

TEST_F(SandboxService, EndsCleanlyWhenTold) {
  m_service->signal(SIGTERM);
  EXPECT_EQ(m_service->wait().status, 0);
}

TEST_F(SandboxService, EndsWithAReasonWhenTheNameIsTaken) {
  std::filesystem::create_directories(m_rpm.path() / "other");
  const Support::ProcessResult result = Support::run({command()[0], "--root", (m_rpm.path() / "other").string()});
  EXPECT_EQ(result.output, "[E] [org.freedesktop.DBus.Error.FileExists] Failed to request bus name (File exists)\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(SandboxService, EndsWithAReasonWhenTheRootIsUnusable) {
  const Support::ProcessResult result = Support::run({command()[0], "--root", "/nowhere"});
  EXPECT_EQ(result.output, "[E] The root is not a directory: \"/nowhere\"\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(SandboxService, EndsWithAReasonWhenTheBusGoes) {
  m_bus.stop();
  const Support::ProcessResult result = m_service->wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(result.output.starts_with("ready\n[E] ")) << result.output;
}

TEST_F(SandboxService, SaysWhatItIs) {
  const Support::ProcessResult result = Support::run({command()[0], "--help"});
  EXPECT_EQ(result.output.substr(0, result.output.find('\n')),
            "krv-sandbox-service: a development and test companion, never to be installed on a device.");
  EXPECT_EQ(result.status, 0);
}

TEST_F(SandboxService, ExplainsItsUsage) {
  const Support::ProcessResult result = Support::run({command()[0], "--rot", "/"});
  EXPECT_EQ(result.errors, "usage: krv-sandbox-service [--root DIR]\n");
  EXPECT_EQ(result.status, 2);
}

} // namespace
