// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "service/krv_proxy.h"

#include "common/error/dbus_error.h"
#include "driver/log/log_message.h"
#include "service/bus_names.h"

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <utility>

namespace {

constexpr std::chrono::microseconds installationTimeLimit{300'000'000};

/// The answer keeps the first of several entries with one key: that is how the library fills a map.
using Answer = std::map<std::string, std::string>;

/// The bus itself answers these two calls. Only a name without an owner may be started: for a running service that
/// no .service file describes, the start alone fails as if nobody provided the name.
void ensureServiceIsThere(sdbus::IConnection& connection) {
  // The names are those of the D-Bus standard ("Message Bus Messages").
  constexpr const char* busInterface = "org.freedesktop.DBus";
  constexpr std::uint32_t noFlags = 0;
  const auto bus =
      sdbus::createProxy(connection, sdbus::ServiceName(busInterface), sdbus::ObjectPath("/org/freedesktop/DBus"));
  bool hasOwner = false;
  bus->callMethod("NameHasOwner").onInterface(busInterface).withArguments(BusNames::service).storeResultsTo(hasOwner);
  if (!hasOwner)
    bus->callMethod("StartServiceByName").onInterface(busInterface).withArguments(BusNames::service, noFlags);
}

std::optional<InstalledPackage> packageFrom(const Answer& answer, const std::string& name) {
  const auto version = answer.find(BusNames::versionKey);
  if (version == answer.end()) {
    LogMessage(LogLevel::Error) << "Failed to determinate package version: " << name;
    return std::nullopt;
  }
  const auto keyId = answer.find(BusNames::developerKeyIdKey);
  if (keyId == answer.end()) {
    LogMessage(LogLevel::Error) << "Failed to determinate package developer key id: " << name;
    return std::nullopt;
  }
  return InstalledPackage{version->second, keyId->second};
}

std::map<std::string, sdbus::Variant> installationOptions() {
  return {{BusNames::showPromptOption, sdbus::Variant(false)},
          {BusNames::showNotificationsOption, sdbus::Variant(false)},
          {BusNames::overrideSourceOption,
           sdbus::Variant(sdbus::Struct<std::string, std::string>(".pre.installed.apps", ""))}};
}

} // namespace

std::optional<KrvProxy> KrvProxy::create() {
  try {
    auto connection = sdbus::createSystemBusConnection();
    ensureServiceIsThere(*connection);
    // The overload without the last argument starts an event-loop thread.
    return KrvProxy(sdbus::createProxy(std::move(connection), BusNames::service, BusNames::objectPath,
                                       sdbus::dont_run_event_loop_thread));
  } catch (const sdbus::Error& error) {
    LogMessage(LogLevel::Error) << error.getMessage();
    return std::nullopt;
  }
}

KrvProxy::KrvProxy(std::unique_ptr<sdbus::IProxy> proxy) : m_proxy(std::move(proxy)) {}
KrvProxy::~KrvProxy() = default;
KrvProxy::KrvProxy(KrvProxy&&) noexcept = default;
KrvProxy& KrvProxy::operator=(KrvProxy&&) noexcept = default;

std::optional<InstalledPackage> KrvProxy::getPackage(const std::string& name) const {
  try {
    Answer answer;
    m_proxy->callMethod(BusNames::getPackage)
        .onInterface(BusNames::interface)
        .withArguments(name)
        .storeResultsTo(answer);
    return packageFrom(answer, name);
  } catch (const sdbus::Error& error) {
    if (Common::fromDBusName(error.getName()) != Common::ErrorCode::PackageNotExist) {
      LogMessage(LogLevel::Error) << error.getMessage();
      LogMessage(LogLevel::Error) << "Failed to query information about installed package: " << name;
    }
    return std::nullopt;
  }
}

bool KrvProxy::install(const std::string& path) {
  try {
    m_proxy->callMethod(BusNames::install)
        .onInterface(BusNames::interface)
        .withTimeout(installationTimeLimit)
        .withArguments(path, installationOptions())
        .storeResultsTo();
    return true;
  } catch (const sdbus::Error& error) {
    LogMessage(LogLevel::Error) << "Package installation error: " << error.getMessage();
    return false;
  }
}
