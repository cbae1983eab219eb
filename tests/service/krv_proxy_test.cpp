// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "service/krv_proxy.h"

#ifdef SDBUS_CXX_IPROXY_H_
#error "The callers of the proxy are to be spared the headers of its library"
#endif

#include "tests/service/bus_monitor.h"
#include "tests/support/bus/any_bus.h"
#include "tests/support/bus/scripted_service.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/expected_errors.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace Support;
using Calls = std::vector<ReceivedCall>;

/// The log of the query, followed by its result.
std::string query(const KrvProxy& proxy, const std::string& name) {
  const CapturedLog log;
  const std::optional<InstalledPackage> package = proxy.getPackage(name);
  return log.text() + (package ? package->version + " by " + package->developerKeyId : "nothing");
}

/// The log of the installation, followed by its result.
std::string installation(KrvProxy& proxy, const std::string& path) {
  const CapturedLog log;
  const bool result = proxy.install(path);
  return log.text() + (result ? "true" : "false");
}

/// The log of create(), followed by whether it returned a proxy.
std::string creation() {
  const CapturedLog log;
  const std::optional<KrvProxy> proxy = KrvProxy::create();
  return log.text() + (proxy ? "a proxy" : "no proxy");
}

std::string failedQuery(const std::string& message, const std::string& name) {
  return (message.empty() ? "" : "[E] " + message + "\n") +
         "[E] Failed to query information about installed package: " + name + "\nnothing";
}

std::string failedInstallation(const std::string& message) {
  return "[E] Package installation error: " + message + "\nfalse";
}

/// A proxy to a scripted service.
class ServiceProxy : public testing::Test {
protected:
  PrivateBus bus;
  ScriptedService service;
  KrvProxy proxy = KrvProxy::create().value();
};

/// A proxy to a scripted service on a bus of either kind.
class BusOfProxy : public AnyBus {
protected:
  void SetUp() override {
    AnyBus::SetUp();
    if (IsSkipped())
      return;
    bus = std::make_unique<PrivateBus>(BusSettings{.program = GetParam()});
    service = std::make_unique<ScriptedService>();
    proxy = KrvProxy::create();
  }

  std::unique_ptr<PrivateBus> bus;
  std::unique_ptr<ScriptedService> service;
  std::optional<KrvProxy> proxy;
};

INSTANTIATE_TEST_SUITE_P(Each, BusOfProxy, everyBus, busName);

using ProxyQuery = ServiceProxy;
using ProxyInstallation = ServiceProxy;

TEST_F(ProxyQuery, GivesTheInstalledPackage) {
  service.onGetPackage("app").answer({{"general.version", "1.2.3-1"}, {"certificate.id", "0a1b"}});
  EXPECT_EQ(query(proxy, "app"), "1.2.3-1 by 0a1b");
}

TEST_F(ProxyQuery, IgnoresOtherKeys) {
  service.onGetPackage("app").answer({{"general.name", "app"},
                                      {"general.version", "1.2.3-1"},
                                      {"", "nameless"},
                                      {"certificate.id", "0a1b"},
                                      {"certificate.id ", "0000"},
                                      {"General.Version", "0"}});
  EXPECT_EQ(query(proxy, "app"), "1.2.3-1 by 0a1b");
}

TEST_F(ProxyQuery, KeepsTheFirstOfRepeatedKeys) {
  service.onGetPackage("app").answer({{"certificate.id", "first"},
                                      {"general.version", "1"},
                                      {"general.version", "2"},
                                      {"certificate.id", "second"},
                                      {"general.version", "0"}});
  EXPECT_EQ(query(proxy, "app"), "1 by first");
}

TEST_F(ProxyQuery, AcceptsEmptyValues) {
  service.onGetPackage("app").answer({{"general.version", ""}, {"certificate.id", ""}});
  EXPECT_EQ(query(proxy, "app"), " by ");
}

TEST_F(ProxyQuery, NeedsTheVersion) {
  service.onGetPackage("app").answer({{"certificate.id", "0a1b"}});
  EXPECT_EQ(query(proxy, "app"), "[E] Failed to determinate package version: app\nnothing");
}

TEST_F(ProxyQuery, NeedsTheDeveloperKeyId) {
  service.onGetPackage("app").answer({{"general.version", "1.2.3-1"}});
  EXPECT_EQ(query(proxy, "app"), "[E] Failed to determinate package developer key id: app\nnothing");
}

TEST_F(ProxyQuery, ReportsAMissingVersionBeforeAMissingKeyId) {
  service.onGetPackage("app").answer({});
  EXPECT_EQ(query(proxy, "app"), "[E] Failed to determinate package version: app\nnothing");
}

TEST_F(ProxyQuery, IsSilentAboutAPackageThatIsNotInstalled) {
  service.onGetPackage("app").fail("velta.KRV.Error.PackageNotExist", "The package does not exist");
  EXPECT_EQ(query(proxy, "app"), "nothing");
}

TEST_F(ProxyQuery, ReportsEveryOtherErrorOfTheService) {
  for (const ExpectedError& error : expectedErrors) {
    service.onGetPackage("app").fail(error.dbusName, std::string("Text of ") + error.shortName);
    const bool isNotInstalled = error.code == Common::ErrorCode::PackageNotExist;
    EXPECT_EQ(query(proxy, "app"),
              isNotInstalled ? "nothing" : failedQuery(std::string("Text of ") + error.shortName, "app"));
  }
}

const char* const foreignErrors[] = {"org.freedesktop.DBus.Error.UnknownMethod",
                                     "org.freedesktop.DBus.Error.AccessDenied",
                                     "org.freedesktop.DBus.Error.NoReply",
                                     "org.freedesktop.DBus.Error.Timeout",
                                     "org.freedesktop.DBus.Error.ServiceUnknown",
                                     "org.sdbuscpp.Error",
                                     "System.Error.ENOENT",
                                     "velta.KRV.Error.packagenotexist",
                                     "velta.KRV.Error.PackageNotExist.Really",
                                     "velta.KRV.PackageNotExist",
                                     "another.Error.PackageNotExist"};

TEST_F(ProxyQuery, ReportsForeignErrors) {
  for (const std::string error : foreignErrors) {
    service.onGetPackage("app").fail(error, "Text of " + error);
    EXPECT_EQ(query(proxy, "app"), failedQuery("Text of " + error, "app"));
  }
}

TEST_F(ProxyQuery, ReportsTheMessageUnchanged) {
  for (const std::string message : {"two\nlines", " 50% \"quoted\" \\ ", "Fehler: \u00fc"}) {
    service.onGetPackage("app").fail("velta.KRV.Error.Internal", message);
    EXPECT_EQ(query(proxy, "app"), failedQuery(message, "app"));
  }
}

TEST_F(ProxyQuery, LogsNoMessageLineForAnErrorWithoutAMessage) {
  service.onGetPackage("empty").fail("velta.KRV.Error.Internal", "");
  service.onGetPackage("none").fail("velta.KRV.Error.Internal");
  EXPECT_EQ(query(proxy, "empty"), failedQuery("", "empty"));
  EXPECT_EQ(query(proxy, "none"), failedQuery("", "none"));
}

TEST_F(ProxyQuery, RefusesAnAnswerOfAnotherType) {
  service.onGetPackage("s").answerAs("s", "general.version");
  service.onGetPackage("i").answerAs("i", 1);
  service.onGetPackage("as").answerAs("as", 2, "general.version", "1");
  service.onGetPackage("a{sv}").answerAs("a{sv}", 2, "general.version", "s", "1", "certificate.id", "s", "0a1b");
  service.onGetPackage("a{si}").answerAs("a{si}", 1, "general.version", 1);
  service.onGetPackage("v").answerAs("v", "a{ss}", 1, "general.version", "1");
  service.onGetPackage("(a{ss})").answerAs("(a{ss})", 1, "general.version", "1");
  service.onGetPackage("empty a{sv}").answerAs("a{sv}", 0);
  service.onGetPackage("nothing at all").succeed();
  for (const std::string name : {"s", "i", "as", "a{sv}", "a{si}", "v", "(a{ss})", "empty a{sv}", "nothing at all"})
    EXPECT_EQ(query(proxy, name), failedQuery("Failed to enter a container (No such device or address)", name));
}

TEST_F(ProxyQuery, IgnoresArgumentsAfterTheDictionary) {
  service.onGetPackage("app").answerAs("a{ss}i", 2, "general.version", "1", "certificate.id", "0a1b", 7);
  EXPECT_EQ(query(proxy, "app"), "1 by 0a1b");
}

TEST_F(ProxyQuery, IsSentAsOneOrdinaryCall) {
  query(proxy, "app");
  EXPECT_EQ(service.calls(), (Calls{{.member = "GetPackage",
                                     .signature = "s",
                                     .arguments = R"("app")",
                                     .destination = "velta.KRV",
                                     .path = "/velta/KRV",
                                     .interface = "velta.KRV",
                                     .expectsReply = true,
                                     .startsService = true,
                                     .allowsInteraction = false}}));
}

TEST_F(ProxyQuery, SendsAnyName) {
  const std::vector<std::string> names = {"",           "two words",        R"("quoted" \ back)",
                                          "two\nlines", "\u00fcml\u00e4ut", std::string(100'000, 'x')};
  Calls expected;
  for (const std::string& name : names) {
    service.hasInstalled(name, "1.0-1", "key");
    EXPECT_EQ(query(proxy, name), "1.0-1 by key");
    expected.push_back(getPackageCall(name));
  }
  EXPECT_EQ(service.calls(), expected);
}

TEST_F(ProxyQuery, FailsForANameThatIsNotUtf8) {
  for (const std::string name : {"\xff", "app\xc3", "\xed\xa0\x80"})
    EXPECT_EQ(query(proxy, name), failedQuery("Failed to serialize a string value (Invalid argument)", name));
  service.hasInstalled("app", "1.0-1", "key");
  EXPECT_EQ(query(proxy, "app"), "1.0-1 by key");
  EXPECT_EQ(service.calls(), (Calls{getPackageCall("app")}));
}

TEST_F(ProxyInstallation, ReturnsTrueWhenTheServiceAnswers) {
  EXPECT_EQ(installation(proxy, "/apps/app.rpm"), "true");
}

TEST_F(ProxyInstallation, IsSentAsOneOrdinaryCall) {
  installation(proxy, "/apps/app.rpm");
  EXPECT_EQ(service.calls(), (Calls{{.member = "Install",
                                     .signature = "sa{sv}",
                                     .arguments = R"("/apps/app.rpm" )"
                                                  R"({"OverrideSource": <(ss) (".pre.installed.apps", "")>, )"
                                                  R"("ShowNotifications": <b false>, "ShowPrompt": <b false>})",
                                     .destination = "velta.KRV",
                                     .path = "/velta/KRV",
                                     .interface = "velta.KRV",
                                     .expectsReply = true,
                                     .startsService = true,
                                     .allowsInteraction = false}}));
}

TEST_F(ProxyInstallation, IgnoresTheContentOfTheAnswer) {
  service.onInstall("/s").answerAs("s", "done");
  service.onInstall("/b").answerAs("b", 0);
  service.onInstall("/a{ss}").answer({{"general.version", "1"}});
  for (const std::string path : {"/s", "/b", "/a{ss}"})
    EXPECT_EQ(installation(proxy, path), "true");
}

TEST_F(ProxyInstallation, ReportsEveryErrorOfTheService) {
  for (const ExpectedError& error : expectedErrors) {
    service.onInstall().fail(error.dbusName, error.message);
    EXPECT_EQ(installation(proxy, "/apps/app.rpm"), failedInstallation(error.message));
  }
}

TEST_F(ProxyInstallation, ReportsForeignErrors) {
  for (const std::string error : foreignErrors) {
    service.onInstall().fail(error, "Text of " + error);
    EXPECT_EQ(installation(proxy, "/apps/app.rpm"), failedInstallation("Text of " + error));
  }
}

TEST_F(ProxyInstallation, ReportsTheMessageUnchanged) {
  for (const std::string message : {"two\nlines", " 50% \"quoted\" \\ ", "Fehler: \u00fc", ""}) {
    service.onInstall().fail("velta.KRV.Error.Internal", message);
    EXPECT_EQ(installation(proxy, "/apps/app.rpm"), failedInstallation(message));
  }
  service.onInstall().fail("velta.KRV.Error.Internal");
  EXPECT_EQ(installation(proxy, "/apps/app.rpm"), failedInstallation(""));
}

TEST_F(ProxyInstallation, SendsAnyPath) {
  Calls expected;
  for (const std::string path : {"", "/apps/two words.rpm", R"(/"quoted"\back.rpm)", "/two\nlines", "/\u00fc.rpm"}) {
    EXPECT_EQ(installation(proxy, path), "true");
    expected.push_back(installCall(path));
  }
  EXPECT_EQ(service.calls(), expected);
}

TEST_F(ProxyInstallation, FailsForAPathThatIsNotUtf8) {
  for (const std::string path : {"/\xff.rpm", "/app\xc3", "/\xc0\xaf"})
    EXPECT_EQ(installation(proxy, path), failedInstallation("Failed to serialize a string value (Invalid argument)"));
  EXPECT_EQ(installation(proxy, "/app.rpm"), "true");
  EXPECT_EQ(service.calls(), (Calls{installCall("/app.rpm")}));
}

TEST_P(BusOfProxy, EndsTheInstallationWhenTheServiceDies) {
  service->onInstall().die();
  EXPECT_EQ(installation(*proxy, "/apps/app.rpm"), failedInstallation(texts().noReply));
  EXPECT_EQ(service->calls(), (Calls{installCall("/apps/app.rpm")}));
}

TEST_P(BusOfProxy, EndsTheInstallationWhenTheBusDies) {
  service->onInstall().keepSilent();
  std::thread end([this] {
    service->waitForCalls(1);
    bus->stop();
  });
  EXPECT_EQ(installation(*proxy, "/apps/app.rpm"), failedInstallation("Connection reset by peer"));
  end.join();
}

TEST_P(BusOfProxy, DetectsThatTheServiceHasLeftBetweenTwoCalls) {
  service->onGetPackage("app").beforeLeaving().answer({{"general.version", "1"}, {"certificate.id", "0a1b"}});
  EXPECT_EQ(query(*proxy, "app"), "1 by 0a1b");
  EXPECT_EQ(installation(*proxy, "/apps/app.rpm"), failedInstallation(texts().noService));
  EXPECT_EQ(query(*proxy, "app"), failedQuery(texts().noService, "app"));
  EXPECT_EQ(service->calls(), (Calls{getPackageCall("app")}));
}

TEST_P(BusOfProxy, CanCallAServiceThatReturned) {
  service->hasInstalled("app", "1.0-1", "key");
  service->onInstall("/bad.rpm").die();
  EXPECT_EQ(installation(*proxy, "/bad.rpm"), failedInstallation(texts().noReply));
  service->arrive();
  EXPECT_EQ(query(*proxy, "app"), "1.0-1 by key");
  service->leave();
  EXPECT_EQ(query(*proxy, "app"), failedQuery(texts().noService, "app"));
  service->arrive();
  EXPECT_EQ(installation(*proxy, "/good.rpm"), "true");
  EXPECT_EQ(service->calls(), (Calls{installCall("/bad.rpm"), getPackageCall("app"), installCall("/good.rpm")}));
}

TEST_P(BusOfProxy, FailsEachCallAfterTheBusHasDied) {
  bus->stop();
  EXPECT_EQ(query(*proxy, "app"), failedQuery("Connection reset by peer", "app"));
  EXPECT_EQ(query(*proxy, "app"), failedQuery("Transport endpoint is not connected", "app"));
  EXPECT_EQ(installation(*proxy, "/app.rpm"), failedInstallation("Transport endpoint is not connected"));
}

TEST_F(ServiceProxy, IgnoresOtherMessages) {
  service.onInstall().whenReleased().succeed();
  std::thread other([this] {
    service.waitForCalls(1);
    service.nudge();
    service.release();
  });
  EXPECT_EQ(installation(proxy, "/app.rpm"), "true");
  other.join();
}

TEST_F(ServiceProxy, CanBeMovedAndNotCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<KrvProxy>);
  EXPECT_FALSE(std::is_copy_assignable_v<KrvProxy>);
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<KrvProxy>);
  EXPECT_TRUE(std::is_nothrow_move_assignable_v<KrvProxy>);
  service.hasInstalled("app", "1.0-1", "key");
  KrvProxy moved = std::move(proxy);
  EXPECT_EQ(query(moved, "app"), "1.0-1 by key");
  proxy = std::move(moved);
  EXPECT_EQ(query(proxy, "app"), "1.0-1 by key");
}

std::ptrdiff_t entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

TEST_F(ServiceProxy, StartsNoThread) {
  const auto threads = entriesOf("/proc/self/task");
  KrvProxy another = KrvProxy::create().value();
  EXPECT_EQ(entriesOf("/proc/self/task"), threads);
  query(another, "app");
  installation(another, "/app.rpm");
  EXPECT_EQ(entriesOf("/proc/self/task"), threads);
}

TEST_F(ServiceProxy, OwnsItsConnection) {
  const auto descriptors = entriesOf("/proc/self/fd");
  {
    const KrvProxy another = KrvProxy::create().value();
    EXPECT_GT(entriesOf("/proc/self/fd"), descriptors);
  }
  EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
}

TEST_F(ServiceProxy, IsCreatedWithoutACallToTheService) {
  EXPECT_EQ(creation(), "a proxy");
  EXPECT_EQ(service.calls(), Calls{});
}

ReceivedCall callToTheBus(const std::string& member, const std::string& signature, const std::string& arguments) {
  return {member, signature, arguments, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
}

using ProxyCreation = AnyBus;
INSTANTIATE_TEST_SUITE_P(Each, ProxyCreation, everyBus, busName);

TEST_P(ProxyCreation, OnlyAsksTheBusIfTheServiceRuns) {
  const PrivateBus bus({.program = GetParam()});
  bus.provide("velta.KRV", "/bin/false");
  const ScriptedService service;
  BusMonitor monitor;
  EXPECT_EQ(query(KrvProxy::create().value(), "app"), "nothing");
  EXPECT_EQ(monitor.callsBefore("GetPackage"),
            (Calls{callToTheBus("Hello", "", ""), callToTheBus("NameHasOwner", "s", R"("velta.KRV")")}));
}

TEST_P(ProxyCreation, StartsAServiceThatDoesNotRun) {
  const PrivateBus bus({.program = GetParam()});
  bus.provide("velta.KRV", program("test-activated-service"));
  BusMonitor monitor;
  EXPECT_EQ(creation(), "a proxy");
  EXPECT_EQ(monitor.callsBefore("StartServiceByName"),
            (Calls{callToTheBus("Hello", "", ""), callToTheBus("NameHasOwner", "s", R"("velta.KRV")")}));
  EXPECT_EQ(query(KrvProxy::create().value(), "started"), "1.0-1 by key");
}

TEST_P(ProxyCreation, FailsWithoutTheService) {
  const PrivateBus bus({.program = GetParam()});
  BusMonitor monitor;
  EXPECT_EQ(creation(), "[E] " + texts().noService + "\nno proxy");
  const ScriptedService service;
  EXPECT_EQ(monitor.callsBefore("RequestName"),
            (Calls{callToTheBus("Hello", "", ""), callToTheBus("NameHasOwner", "s", R"("velta.KRV")"),
                   callToTheBus("StartServiceByName", "su", R"("velta.KRV" 0)"),
                   // The service connects.
                   callToTheBus("Hello", "", "")}));
  EXPECT_EQ(creation(), "a proxy");
}

TEST_P(ProxyCreation, FailsWithAServiceThatDoesNotStart) {
  const PrivateBus bus({.program = GetParam()});
  bus.provide("velta.KRV", "/bin/false");
  EXPECT_EQ(creation(), "[E] " + texts().deadService + "\nno proxy");
}

TEST_P(ProxyCreation, FailsWhenTheServiceHasLeft) {
  const PrivateBus bus({.program = GetParam()});
  ScriptedService service;
  EXPECT_EQ(creation(), "a proxy");
  service.leave();
  EXPECT_EQ(creation(), "[E] " + texts().noService + "\nno proxy");
}

TEST_P(ProxyCreation, FailsWithoutABus) {
  PrivateBus bus({.program = GetParam()});
  bus.stop();
  EXPECT_EQ(creation(), "[E] Failed to open bus (Connection refused)\nno proxy");
}

TEST(ProxyWithoutABus, IsNotCreatedWithABadAddress) {
  const TempDirectory directory;
  for (const auto& [address, reason] : std::vector<std::pair<std::string, std::string>>{
           {"unix:path=" + (directory / "nowhere").string(), "No such file or directory"},
           {"", "Connection refused"},
           {"nonsense", "Connection refused"}}) {
    const ScopedEnvironment systemBus("DBUS_SYSTEM_BUS_ADDRESS", address);
    EXPECT_EQ(creation(), "[E] Failed to open bus (" + reason + ")\nno proxy") << address;
  }
}

} // namespace
