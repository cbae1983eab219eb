// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"
#include "tests/support/bus/any_bus.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Support::getPackageCall;
using Support::installCall;
using Support::readFile;

/// The default policy of a system bus: everything that a service's policy must allow is denied.
const std::string barePolicies = "  <policy context=\"default\">\n"
                                 "    <allow user=\"*\"/>\n"
                                 "    <deny own=\"*\"/>\n"
                                 "    <deny send_type=\"method_call\"/>\n"
                                 "    <allow send_type=\"signal\"/>\n"
                                 "    <allow send_requested_reply=\"true\" send_type=\"method_return\"/>\n"
                                 "    <allow send_requested_reply=\"true\" send_type=\"error\"/>\n"
                                 "    <allow receive_type=\"method_call\"/>\n"
                                 "    <allow receive_type=\"method_return\"/>\n"
                                 "    <allow receive_type=\"error\"/>\n"
                                 "    <allow receive_type=\"signal\"/>\n"
                                 "    <allow send_destination=\"org.freedesktop.DBus\"/>\n"
                                 "    <allow own=\"org.freedesktop.systemd1\"/>\n"
                                 "  </policy>\n";

const fs::path examples = fs::path(KRV_SOURCE_DIRECTORY) / "packaging/dbus";

/// The same with the example policy for the service.
const std::string stockPolicies =
    barePolicies + "  <include>" + (examples / "velta.KRV.conf.example").string() + "</include>\n";

/// Calls a method of the service with a string argument. Returns the name of the error; nothing after success.
std::string errorOf(const char* interface, const char* method) {
  sd_bus* connection = nullptr;
  if (sd_bus_open_system(&connection) < 0)
    return "no connection";
  const std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> owner(connection, &sd_bus_flush_close_unref);
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_call_method(connection, "velta.KRV", "/velta/KRV", interface, method, &error, nullptr, "s", "x");
  const std::string name = error.name == nullptr ? "" : error.name;
  sd_bus_error_free(&error);
  return name;
}

class BusPolicy : public Support::AnyBus {
protected:
  void SetUp() override {
    AnyBus::SetUp();
    if (IsSkipped())
      return;
    if (geteuid() != 0)
      GTEST_SKIP() << "only root can be both the tool's user and an ordinary one";
    m_device = std::make_unique<Device>(Support::BusSettings{.program = GetParam(), .policies = stockPolicies});
  }

  std::unique_ptr<Device> m_device;
};

INSTANTIATE_TEST_SUITE_P(Each, BusPolicy, Support::everyBus, Support::busName);

const std::string accessDenied = "org.freedesktop.DBus.Error.AccessDenied";

TEST_P(BusPolicy, AllowsTheToolToWork) {
  const fs::path package = m_device->add({});
  const auto run = m_device->run();
  EXPECT_EQ(run.log, installedLine(package) + timeLine);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(m_device->service().calls(), (std::vector{getPackageCall("sample"), installCall(package)}));
}

TEST_P(BusPolicy, RefusesInstallationsByOthers) {
  const Support::OrdinaryUser user(m_device->bus().socket().parent_path());
  EXPECT_EQ(errorOf("velta.KRV", "Install"), accessDenied);
  EXPECT_EQ(errorOf(nullptr, "Install"), accessDenied);
  EXPECT_EQ(errorOf("velta.KRV", "Remove"), accessDenied);
  EXPECT_EQ(m_device->service().calls(), std::vector<Support::ReceivedCall>());
}

TEST_P(BusPolicy, AllowsQueriesByEverybody) {
  m_device->service().hasInstalled("x", "1-1", "key");
  const Support::OrdinaryUser user(m_device->bus().socket().parent_path());
  EXPECT_EQ(errorOf("velta.KRV", "GetPackage"), "");
  EXPECT_EQ(m_device->service().calls(), std::vector{getPackageCall("x")});
}

TEST(ActivationFile, LetsTheBusStartTheService) {
  if (geteuid() != 0)
    GTEST_SKIP() << "the policy lets only root be the service";
  // This bus starts the program itself, as systemd starts that of the unit on a device.
  const std::string example = readFile(examples / "velta.KRV.service.example");
  static const std::regex program("(\nExec=)[^\n]*\n");
  ASSERT_TRUE(std::regex_search(example, program));
  const Support::TempDirectory folder;
  Support::writeFile(
      folder / "velta.KRV.service",
      std::regex_replace(example, program, "$1\"" + Support::program("test-activated-service").string() + "\"\n"));
  Device device({.policies = stockPolicies + "  <servicedir>" + folder.path().string() + "</servicedir>\n"});
  device.removeService();
  const fs::path package = device.add({.name = "started"});
  EXPECT_EQ(device.run().log,
            "[E] The package version is lower than or equal to the version of an already installed package: " +
                quoted(package) + "\n" + skippedLine(package) + timeLine);
}

TEST(UnitOfTheService, IsTheOneThatTheActivationFileNamesAndPassesSystemdAnalyzeVerify) {
  if (Support::run({"systemd-analyze", "--version"}).status == 127)
    GTEST_SKIP() << "systemd-analyze is not here";
  std::smatch name;
  const std::string activation = readFile(examples / "velta.KRV.service.example");
  ASSERT_TRUE(std::regex_search(activation, name, std::regex("\nSystemdService=([^\n]*)\n")));
  const std::string example = readFile(examples / (name[1].str() + ".example"));
  const Support::TempDirectory folder;
  Support::writeFile(folder / name[1].str(),
                     std::regex_replace(example, std::regex("(\nExecStart=)[^\n]*\n"), "$1/bin/true\n"));
  // The unit requires dbus.socket, which not every machine has.
  Support::writeFile(folder / "dbus.socket", "[Socket]\nListenStream=/run/dbus/system_bus_socket\n");
  const Support::ProcessResult result = Support::run({"systemd-analyze", "verify", "--man=no", folder / name[1].str()});
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_EQ(result.status, 0);
}

using BusWithoutPolicy = Support::AnyBus;
INSTANTIATE_TEST_SUITE_P(Each, BusWithoutPolicy, Support::everyBus, Support::busName);

TEST_P(BusWithoutPolicy, RefusesQueriesAndInstallations) {
  const std::string owner = "  <policy context=\"default\"><allow own=\"velta.KRV\"/></policy>\n";
  Device device({.program = GetParam(), .policies = barePolicies + owner});
  const fs::path package = device.add({});
  const auto run = device.run();
  const std::string denied = "\\[E\\] (Package installation error: )?" + texts().denied + "\n";
  EXPECT_THAT(run.log, testing::MatchesRegex(denied +
                                             "\\[E\\] Failed to query information about installed package: "
                                             "sample\n" +
                                             denied +
                                             "\\[E\\] Failed to pre-install package: [^\n]*\n"
                                             "\\[I\\] Time spent for pre-installation: N seconds\n"));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(device.service().calls(), std::vector<Support::ReceivedCall>());
}

} // namespace
