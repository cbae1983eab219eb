// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/bus_object.h"

#include "common/error/error.h"
#include "common/text/utf8.h"
#include "sandbox/handle_call.h"
#include "sandbox/store/package_store.h"
#include "service/bus_names.h"

#include <sdbus-c++/sdbus-c++.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace Sandbox {

namespace {

using Common::Error;
using Common::ErrorCode;

using Description = std::map<std::string, std::string>;
using Options = std::map<std::string, sdbus::Variant>;
/// A source's name, and a text that is not used.
using Source = sdbus::Struct<std::string, std::string>;

template <typename Expected>
const sdbus::Variant& checked(const std::string& option, const sdbus::Variant& value) {
  if (!value.containsValueOfType<Expected>())
    throw Error(ErrorCode::InvalidArguments, "The installation option has a wrong type: " + option);
  return value;
}

/// The source in the options. The two options for dialogs are only checked, because this service has no screen.
std::string sourceFrom(const Options& options) {
  std::string source;
  for (const auto& [option, value] : options) {
    if (option == BusNames::overrideSourceOption)
      source = checked<Source>(option, value).get<Source>().get<0>();
    else if (option == BusNames::showPromptOption || option == BusNames::showNotificationsOption)
      checked<bool>(option, value);
    else
      throw Error(ErrorCode::InvalidArguments, "Unknown installation option: " + option);
  }
  return source;
}

/// Clients compare version and release; with an epoch, a package file without one would look older.
std::string withoutEpoch(const std::string& version) {
  return version.substr(version.find(':') + 1);
}

Description describe(const StoredPackage& package) {
  Description description{{"general.name", package.name},
                          {BusNames::versionKey, withoutEpoch(package.version)},
                          {"general.source", package.source},
                          {BusNames::developerKeyIdKey, package.developer.keyId},
                          {"certificate.subgroup", package.developer.subgroup}};
  for (auto& [key, value] : description)
    value = Common::asUtf8(value);
  return description;
}

Description getPackage(const PackageStore& store, const std::string& name) {
  Description package;
  handleCall("GetPackage " + name, [&] { package = describe(store.get(name)); });
  return package;
}

void install(PackageStore& store, const std::string& path, const Options& options) {
  std::ostringstream call;
  call << "Install " << std::filesystem::path(path);
  handleCall(call.str(), [&] { store.install(path, sourceFrom(options)); });
}

void remove(PackageStore& store, const std::string& name) {
  handleCall("Remove " + name, [&] { store.remove(name); });
}

std::vector<Description> list(const PackageStore& store) {
  std::vector<Description> packages;
  handleCall("List", [&] {
    for (const StoredPackage& package : store.list())
      packages.push_back(describe(package));
  });
  return packages;
}

} // namespace

std::unique_ptr<sdbus::IObject> exportObject(sdbus::IConnection& connection, PackageStore& store) {
  auto object = sdbus::createObject(connection, BusNames::objectPath);
  const auto getPackageMethod =
      sdbus::registerMethod(BusNames::getPackage)
          .withInputParamNames("name")
          .withOutputParamNames("package")
          .implementedAs([&store](const std::string& name) { return getPackage(store, name); });
  const auto installMethod =
      sdbus::registerMethod(BusNames::install)
          .withInputParamNames("path", "options")
          .implementedAs([&store](const std::string& path, const Options& options) { install(store, path, options); });
  const auto removeMethod = sdbus::registerMethod("Remove").withInputParamNames("name").implementedAs(
      [&store](const std::string& name) { remove(store, name); });
  const auto listMethod =
      sdbus::registerMethod("List").withOutputParamNames("packages").implementedAs([&store] { return list(store); });
  object->addVTable(getPackageMethod, installMethod, removeMethod, listMethod).forInterface(BusNames::interface);
  return object;
}

} // namespace Sandbox
