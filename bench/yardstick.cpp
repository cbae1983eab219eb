// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/handles.h"
#include "service/bus_names.h"

#include <openssl/cms.h>
#include <openssl/x509.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmtag.h>
#include <sdbus-c++/sdbus-c++.h>

#include <array>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <fcntl.h>

namespace {

namespace fs = std::filesystem;
using namespace Common::Rpm;

template <auto release>
struct Release {
  template <typename Handle>
  void operator()(Handle* handle) const {
    release(handle);
  }
};

constexpr rpm_tag_t containerTag = 1263687235;

std::string nameOf(const char* path, const KeyringHandle& keyring) {
  const FileHandle file = ownFile(Fopen(path, "r.ufdio"));
  const TransactionSetHandle set = ownTransactionSet(rpmtsCreate());
  rpmtsSetKeyring(set.get(), keyring.get());
  Header header = nullptr;
  rpmReadPackageFile(set.get(), file.get(), path, &header);
  const HeaderHandle owner = ownHeader(header);
  return headerGetString(header, RPMTAG_NAME);
}

/// Reads the signature header, parses the first CMS of its container, and computes the digest of the signer's key.
std::array<unsigned char, 32> keyIdOf(const char* path) {
  constexpr off_t leadSize = 96;
  const FileHandle file = ownFile(Fopen(path, "r.ufdio"));
  Fseek(file.get(), leadSize, SEEK_SET);
  const HeaderHandle header = ownHeader(headerRead(file.get(), HEADER_MAGIC_YES));
  const TagDataHandle container = ownTagData(rpmtdNew());
  headerGet(header.get(), containerTag, container.get(), HEADERGET_MINMEM);
  const auto* bytes = static_cast<const unsigned char*>(container->data);
  const std::unique_ptr<CMS_ContentInfo, Release<CMS_ContentInfo_free>> message(
      d2i_CMS_ContentInfo(nullptr, &bytes, static_cast<long>(container->count)));
  STACK_OF(X509)* const certificates = CMS_get1_certs(message.get());
  unsigned char* key = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(sk_X509_value(certificates, 0)), &key);
  std::array<unsigned char, 32> digest{};
  EVP_Digest(key, static_cast<std::size_t>(size), digest.data(), nullptr, EVP_sha256(), nullptr);
  OPENSSL_free(key);
  sk_X509_pop_free(certificates, X509_free);
  return digest;
}

void ask(sdbus::IProxy& service, const std::string& name) {
  std::map<std::string, std::string> answer;
  try {
    service.callMethod(BusNames::getPackage)
        .onInterface(BusNames::interface)
        .withArguments(name)
        .storeResultsTo(answer);
  } catch (const sdbus::Error&) {
    // not installed
  }
}

void install(sdbus::IProxy& service, const std::string& path) {
  const std::map<std::string, sdbus::Variant> options = {
      {BusNames::showPromptOption, sdbus::Variant(false)},
      {BusNames::showNotificationsOption, sdbus::Variant(false)},
      {BusNames::overrideSourceOption, sdbus::Variant(sdbus::Struct<std::string, std::string>("source", ""))}};
  service.callMethod(BusNames::install).onInterface(BusNames::interface).withArguments(path, options).storeResultsTo();
}

} // namespace

/// bench-yardstick FOLDER [--no-install]: makes only the calls of librpm, OpenSSL and the bus that the tool cannot
/// avoid for the packages of FOLDER. It checks and logs nothing.
int main(int argc, char** argv) {
  const bool installs = argc == 2;
  const auto service = sdbus::createProxy(sdbus::createSystemBusConnection(), BusNames::service, BusNames::objectPath,
                                          sdbus::dont_run_event_loop_thread);
  KeyringHandle keyring;
  for (const fs::directory_entry& entry : fs::directory_iterator(argv[1])) {
    const std::string path = entry.path();
    if (!keyring) {
      rpmReadConfigFiles(nullptr, nullptr);
      keyring = ownKeyring(rpmtsGetKeyring(ownTransactionSet(rpmtsCreate()).get(), 1));
    }
    const std::string name = nameOf(path.c_str(), keyring);
    keyIdOf(path.c_str());
    ask(*service, name);
    if (installs)
      install(*service, path);
  }
  return 0;
}
