// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "service/krv_proxy.h"

#include "common/error/dbus_error.h"
#include "driver/log/messages.h"
#include "service/bus_names.h"

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <utility>

namespace {

constexpr std::chrono::microseconds installationTimeLimit{300'000'000};

/// The first value of each key that the tool needs. An answer may have millions of other entries.
struct Answer {
  std::optional<std::string> version;
  std::optional<std::string> developerKeyId;
};

sdbus::Message& operator>>(sdbus::Message& message, Answer& answer) {
  return message.deserializeDictionary<std::string, std::string>([&](auto entry) {
    auto& [key, value] = entry;
    if (key == BusNames::versionKey && !answer.version)
      answer.version = std::move(value);
    else if (key == BusNames::developerKeyIdKey && !answer.developerKeyId)
      answer.developerKeyId = std::move(value);
  });
}

/// The bus itself answers these two calls. It is asked to start only a name without an owner: if a service runs but has
/// no .service file, StartServiceByName fails as if the service did not exist.
void ensureServiceIsThere(sdbus::IConnection& connection) {
  // The D-Bus standard defines these names ("Message Bus Messages").
  constexpr const char* busInterface = "org.freedesktop.DBus";
  constexpr std::uint32_t noFlags = 0;
  const auto bus =
      sdbus::createProxy(connection, sdbus::ServiceName(busInterface), sdbus::ObjectPath("/org/freedesktop/DBus"));
  bool hasOwner = false;
  bus->callMethod("NameHasOwner").onInterface(busInterface).withArguments(BusNames::service).storeResultsTo(hasOwner);
  if (!hasOwner)
    bus->callMethod("StartServiceByName").onInterface(busInterface).withArguments(BusNames::service, noFlags);
}

std::optional<InstalledPackage> packageFrom(Answer answer, const std::string& name) {
  if (!answer.version) {
    logLine<Message::NoInstalledVersion>(name);
    return std::nullopt;
  }
  if (!answer.developerKeyId) {
    logLine<Message::NoInstalledKey>(name);
    return std::nullopt;
  }
  return InstalledPackage{std::move(*answer.version), std::move(*answer.developerKeyId)};
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
    logLine<Message::ErrorText>(error.getMessage());
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
    return packageFrom(std::move(answer), name);
  } catch (const sdbus::Error& error) {
    if (Common::fromDBusName(error.getName()) != Common::ErrorCode::PackageNotExist) {
      logLine<Message::ErrorText>(error.getMessage());
      logLine<Message::QueryFailed>(name);
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
    logLine<Message::InstallationError>(error.getMessage());
    return false;
  }
}
