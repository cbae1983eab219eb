// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "service/bus_names.h"
#include "tests/sandbox/real_service.h"
#include "tests/sandbox/text.h"
#include "tests/support/bus/private_bus.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/wait.h"
#include "tests/support/signing/pki.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>

namespace {

namespace fs = std::filesystem;
using Support::PackageInput;
using Source = sdbus::Struct<std::string, std::string>;
using testing::ElementsAre;
using testing::IsEmpty;

/// A root, a bus, and a function that starts the service.
class SandboxProcess : public testing::Test {
protected:
  SandboxProcess() {
    fs::create_directories(root());
    Support::trustAuthorityUnder(root());
  }

  fs::path root() const { return m_rpm.path() / "root"; }

  fs::path package(const PackageInput& input, const std::string& developer = "alice") {
    const fs::path path = m_rpm.path() / (input.name + "-" + input.version + ".rpm");
    m_rpm.build(input, path);
    if (!developer.empty())
      Support::sign(path, developer);
    return path;
  }

  std::string registry() const { return withoutTimestamps(Support::readFile(root() / "var/lib/krv/registry")); }

  Support::RpmSandbox m_rpm;
  Support::PrivateBus m_bus;
};

/// The running service with a client.
class SandboxService : public SandboxProcess {
protected:
  RealService m_service{root()};
  ServiceClient m_client;
};

// Installed packages

TEST_F(SandboxService, DescribesAnInstalledPackage) {
  m_client.install(package({.version = "1.2", .release = "3"}));
  const std::string keyId = Support::Pki::instance().keyId("alice");
  EXPECT_EQ(m_client.getPackage("sample"), (ServiceClient::Package{{"general.name", "sample"},
                                                                   {"general.version", "1.2-3"},
                                                                   {"general.source", ""},
                                                                   {"certificate.id", keyId},
                                                                   {"certificate.subgroup", "regular"}}));
  EXPECT_EQ(registry(), "timestamp=T event=I package=sample keyid=" + keyId + "\n");
}

TEST_F(SandboxService, ListsInstalledPackagesByName) {
  m_client.install(package({.name = "pear"}));
  m_client.install(package({.name = "apple"}, "extended"));
  m_client.install(package({.name = "plum"}));
  EXPECT_THAT(m_client.list(),
              ElementsAre(m_client.getPackage("apple"), m_client.getPackage("pear"), m_client.getPackage("plum")));
}

TEST_F(SandboxService, GivesAVersionWithoutItsEpoch) {
  m_client.install(package({.preamble = "Epoch: 3"}));
  EXPECT_THAT(m_client.installed(), ElementsAre("sample 1.0-1"));
}

TEST_F(SandboxService, ReportsThatAPackageIsNotInstalled) {
  EXPECT_THAT(m_client.list(), IsEmpty());
  EXPECT_EQ(busErrorOf([&] { m_client.getPackage("sample"); }),
            "velta.KRV.Error.PackageNotExist: The package is not installed: sample");
  EXPECT_EQ(busErrorOf([&] { m_client.remove("sample"); }),
            "velta.KRV.Error.PackageNotExist: The package is not installed: sample");
}

TEST_F(SandboxService, RemovesAPackageAndRecordsIt) {
  m_client.install(package({}));
  m_client.remove("sample");
  EXPECT_THAT(m_client.list(), IsEmpty());
  EXPECT_EQ(registry(), "timestamp=T event=R package=sample keyid=" + Support::Pki::instance().keyId("alice") + "\n");
}

TEST_F(SandboxService, KnowsPackagesInstalledBeforeItsStart) {
  m_client.install(package({}), {{"OverrideSource", sdbus::Variant(Source("shop", ""))}});
  const ServiceClient::Package before = m_client.getPackage("sample");
  m_service.process().signal(SIGTERM);
  m_service.process().wait();
  const RealService next(root());
  EXPECT_EQ(m_client.getPackage("sample"), before);
}

// The options of an installation

struct WrongOption {
  std::string name;
  std::string option;
  std::function<sdbus::Variant()> value; ///< created in the test, because the library's variants must not outlive
                                         ///< main()
  std::string error;
};

void PrintTo(const WrongOption& option, std::ostream* out) {
  *out << option.name;
}

template <typename Value>
std::function<sdbus::Variant()> variant(const Value& value) {
  return [value] { return sdbus::Variant(value); };
}

sdbus::Variant variantInAVariant() {
  const sdbus::Variant inner(false);
  return sdbus::Variant(inner, sdbus::embed_variant);
}

const std::string unknown = "Unknown installation option: ";
const std::string mistyped = "The installation option has a wrong type: ";

class InstallationOption : public SandboxService, public testing::WithParamInterface<WrongOption> {};

TEST_P(InstallationOption, IsRefusedByItsNameEvenAmongValidOnes) {
  const fs::path path = package({});
  const std::string error = "velta.KRV.Error.InvalidArguments: " + GetParam().error;
  ServiceClient::Options options;
  options.emplace(GetParam().option, GetParam().value());
  EXPECT_EQ(busErrorOf([&] { m_client.install(path, options); }), error);
  options.emplace("ShowPrompt", sdbus::Variant(false));
  options.emplace("ShowNotifications", sdbus::Variant(false));
  EXPECT_EQ(busErrorOf([&] { m_client.install(path, options); }), error);
  EXPECT_THAT(m_client.list(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Wrong, InstallationOption,
    testing::ValuesIn(std::vector<WrongOption>{
        {"Unknown", "Force", variant(true), unknown + "Force"},
        {"InAnotherCase", "showPrompt", variant(true), unknown + "showPrompt"},
        {"WithoutAName", "", variant(true), unknown},
        {"PromptAsText", "ShowPrompt", variant(std::string("no")), mistyped + "ShowPrompt"},
        {"PromptInAVariant", "ShowPrompt", variantInAVariant, mistyped + "ShowPrompt"},
        {"NotificationsAsANumber", "ShowNotifications", variant(std::int32_t(0)), mistyped + "ShowNotifications"},
        {"SourceAsText", "OverrideSource", variant(std::string("shop")), mistyped + "OverrideSource"},
        {"SourceOfOneText", "OverrideSource", variant(sdbus::Struct<std::string>("shop")), mistyped + "OverrideSource"},
        {"SourceOfThreeTexts", "OverrideSource",
         variant(sdbus::Struct<std::string, std::string, std::string>("a", "b", "c")), mistyped + "OverrideSource"},
        {"SourceAsAList", "OverrideSource", variant(std::vector<std::string>{"shop", ""}), mistyped + "OverrideSource"},
    }),
    [](const auto& instance) { return instance.param.name; });

TEST_F(SandboxService, AcceptsAllOptionsAndStoresTheSource) {
  m_client.install(package({}), {{"ShowPrompt", sdbus::Variant(true)},
                                 {"ShowNotifications", sdbus::Variant(true)},
                                 {"OverrideSource", sdbus::Variant(Source("shop", "ignored"))}});
  EXPECT_EQ(m_client.getPackage("sample").at("general.source"), "shop");
}

// Other calls, and the log

TEST_F(SandboxService, LeavesUnknownCallsToTheBusLibrary) {
  EXPECT_EQ(busErrorOf([&] { m_client.proxy().callMethod("Update").onInterface("velta.KRV"); }),
            "org.freedesktop.DBus.Error.UnknownMethod: Unknown method Update or interface velta.KRV.");
  EXPECT_EQ(busErrorOf([&] { m_client.proxy().callMethod("Remove").onInterface("velta.KRV").withArguments(1); }),
            "org.freedesktop.DBus.Error.InvalidArgs: Invalid arguments 'i' to call velta.KRV.Remove(), expecting 's'.");
  EXPECT_THAT(m_client.list(), IsEmpty());
}

/// The store's own log lines come before the line of the call.
TEST_F(SandboxService, WritesALineForEachCall) {
  const std::string good = package({});
  m_client.install(good);
  m_client.getPackage("sample");
  m_client.list();
  m_client.remove("sample");
  busErrorOf([&] { m_client.remove("sample"); });
  busErrorOf([&] { m_client.getPackage("other"); });
  busErrorOf([&] { m_client.install("/nowhere/\"a\".rpm"); });
  busErrorOf([&] { m_client.install(good, {{"Force", sdbus::Variant(true)}}); });
  EXPECT_EQ(replaced(m_service.log(), good, "GOOD"),
            R"([I] Installed: sample 1.0-1
[I] Install "GOOD"
[I] GetPackage sample
[I] List
[I] Removed: sample 1.0-1
[I] Remove sample
[E] Remove sample: PackageNotExist: The package is not installed: sample
[E] GetPackage other: PackageNotExist: The package is not installed: other
[E] Install "/nowhere/\"a\".rpm": FileNotFound: The package is not an existing regular file: /nowhere/"a".rpm
[E] Install "GOOD": InvalidArguments: Unknown installation option: Force
)");
}

// Start and end

TEST_F(SandboxService, EndsWithAReasonWhenTheNameIsTaken) {
  fs::create_directory(m_rpm.path() / "other");
  const Support::ProcessResult result = Support::run(serviceCommand(m_rpm.path() / "other"));
  EXPECT_EQ(result.output, "[E] The bus name is taken: velta.KRV\n");
  EXPECT_EQ(result.status, 1);
}

/// The name is free on another bus, but the root is the same.
TEST_F(SandboxService, EndsWithAReasonWhenTheRootIsInUse) {
  const Support::PrivateBus otherBus;
  const Support::ProcessResult result = Support::run(serviceCommand(root()));
  EXPECT_EQ(result.output,
            "[E] Another process uses the package store: " + (root() / "var/lib/krv/sandbox/lock").string() + "\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(SandboxService, EndsWithAReasonWhenTheBusDisconnects) {
  m_bus.stop();
  const Support::ProcessResult result = m_service.process().wait();
  EXPECT_EQ(result.output, "ready\n[E] The connection to the system bus broke: "
                           "Failed to get bus poll data (Transport endpoint is not connected)\n");
  EXPECT_EQ(result.status, 1);
}

class SandboxServiceAt : public SandboxService, public testing::WithParamInterface<int> {};

/// Clients that do not wait for answers keep the service busy until its end.
TEST_P(SandboxServiceAt, EndsCleanlyWhenItIsFloodedWithCalls) {
  std::atomic<bool> goesOn = true;
  std::vector<std::thread> flood;
  for (int number = 0; number < 2; ++number)
    flood.emplace_back([&] {
      ServiceClient client;
      while (goesOn)
        busErrorOf([&] {
          auto call = client.proxy().createMethodCall(BusNames::interface, sdbus::MethodName("List"));
          call.dontExpectReply();
          client.proxy().callMethod(call);
        });
    });
  EXPECT_TRUE(Support::waitUntil([&] { return m_service.log().size() > 1000; }));
  m_service.process().signal(GetParam());
  EXPECT_TRUE(Support::waitUntil([&] { return !m_service.process().isRunning(); }, std::chrono::seconds(10)));
  goesOn = false;
  for (std::thread& thread : flood)
    thread.join();
  EXPECT_EQ(m_service.process().wait().status, 0);
}

TEST_P(SandboxServiceAt, EndsCleanly) {
  m_service.process().signal(GetParam());
  const Support::ProcessResult result = m_service.process().wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "ready\n");
  EXPECT_EQ(result.errors, "");
}

/// The client gets a bus error at the end; calls that were answered before are complete.
TEST_P(SandboxServiceAt, EndsCleanlyInTheMiddleOfASeriesOfCalls) {
  const fs::path path = package({});
  std::vector<std::string> answers;
  std::thread series([&] {
    ServiceClient client;
    for (std::string error = "no error"; error == "no error";) {
      error = busErrorOf([&] { answers.size() % 2 == 0 ? client.install(path) : client.remove("sample"); });
      answers.push_back(error);
    }
  });
  Support::waitUntil([&] { return m_service.log().find("Remove sample\n") != std::string::npos; });
  m_service.process().signal(GetParam());
  const Support::ProcessResult result = m_service.process().wait();
  series.join();
  EXPECT_EQ(result.status, 0);
  const bool isInstalled = (answers.size() - 1) % 2 == 1;
  RealService next(root());
  EXPECT_EQ(m_client.installed(), isInstalled ? std::vector<std::string>{"sample 1.0-1"} : std::vector<std::string>{});
  EXPECT_EQ(fs::exists(root() / "opt/sample/file"), isInstalled);
}

INSTANTIATE_TEST_SUITE_P(Signal, SandboxServiceAt, testing::Values(SIGTERM, SIGINT),
                         [](const auto& instance) { return instance.param == SIGTERM ? "Sigterm" : "Sigint"; });

TEST_F(SandboxProcess, EndsWithAReasonWithoutABus) {
  m_bus.stop();
  const Support::ProcessResult result = Support::run(serviceCommand(root()));
  EXPECT_EQ(result.output, "[E] Couldn't connect to the system bus: Failed to open bus (Connection refused)\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(SandboxProcess, EndsWithAReasonWhenTheRootIsUnusable) {
  const fs::path file = m_rpm.path() / "file";
  Support::writeFile(file, "");
  for (const fs::path& unusable : {fs::path("/nowhere"), file, fs::path()}) {
    const Support::ProcessResult result = Support::run(serviceCommand(unusable));
    EXPECT_EQ(result.output, "[E] The root is not a directory: " + unusable.string() + "\n");
    EXPECT_EQ(result.status, 1);
  }
}

TEST_F(SandboxProcess, TakesItsRootFromTheEnvironment) {
  const std::vector<std::string> command{serviceCommand("")[0]};
  const Support::ProcessResult without = Support::run(command, {{"KRV_ROOT_FS", std::nullopt}});
  EXPECT_EQ(without.output, "[E] No root is given, neither with --root nor in KRV_ROOT_FS\n");
  EXPECT_EQ(without.status, 1);
  Support::Process with(command, {{"KRV_ROOT_FS", root()}});
  EXPECT_TRUE(Support::waitUntil([&] { return with.outputSoFar() == "ready\n"; }));
}

TEST_F(SandboxProcess, PrintsItsHelp) {
  const Support::ProcessResult result = Support::run({serviceCommand("")[0], "--help"});
  EXPECT_EQ(result.output.substr(0, result.output.find('\n')),
            "A package-manager service for development and tests, never to be installed on a device.");
  EXPECT_EQ(result.status, 0);
}

TEST_F(SandboxProcess, RefusesWrongUsage) {
  const struct {
    std::vector<std::string> arguments;
    std::string message; ///< the text is CLI11's, the same since version 2.1
  } cases[] = {
      {{"--rot", "/"}, "The following arguments were not expected: / --rot"},
      {{"--root"}, "--root: 1 required DIR missing"},
      {{"--root", root(), "more"}, "The following argument was not expected: more"},
      {{root()}, "The following argument was not expected: " + root().string()},
  };
  for (const auto& [arguments, message] : cases) {
    std::vector<std::string> command{serviceCommand("")[0]};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Support::ProcessResult result = Support::run(command);
    EXPECT_EQ(result.errors, "krv-sandbox-service: " + message + "\nTry: krv-sandbox-service --help\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.status, 2);
  }
}

} // namespace
