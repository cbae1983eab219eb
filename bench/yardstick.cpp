// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <rpm/header.h>
#include <rpm/rpmio.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmtag.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>
#include <rpm/rpmver.h>

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include <dirent.h>
#include <systemd/sd-bus.h>

namespace {

/// Calls the library's release function for a handle.
template <auto release>
struct Release {
  template <typename Handle>
  void operator()(Handle* handle) const {
    release(handle);
  }
};

void freeCertificates(STACK_OF(X509) * certificates) {
  sk_X509_pop_free(certificates, X509_free);
}

using BusHandle = std::unique_ptr<sd_bus, Release<sd_bus_flush_close_unref>>;
using MessageHandle = std::unique_ptr<sd_bus_message, Release<sd_bus_message_unref>>;
using FolderHandle = std::unique_ptr<DIR, Release<closedir>>;
using FileHandle = std::unique_ptr<std::remove_pointer_t<FD_t>, Release<Fclose>>;
using HeaderHandle = std::unique_ptr<std::remove_pointer_t<Header>, Release<headerFree>>;
using TransactionSetHandle = std::unique_ptr<std::remove_pointer_t<rpmts>, Release<rpmtsFree>>;
using VersionHandle = std::unique_ptr<std::remove_pointer_t<rpmver>, Release<rpmverFree>>;
using CmsHandle = std::unique_ptr<CMS_ContentInfo, Release<CMS_ContentInfo_free>>;
using CertificatesHandle = std::unique_ptr<STACK_OF(X509), Release<freeCertificates>>;

struct Package {
  std::string name;
  std::string version;
  std::string keyId;
};

/// SHA-256 of the key in the first message of the signature header, in hexadecimal digits.
std::string keyIdIn(Header signatures) {
  constexpr rpm_tag_t containerTag = 1263687235;
  rpmtd_s container;
  headerGet(signatures, containerTag, &container, HEADERGET_MINMEM);
  const auto* bytes = static_cast<const unsigned char*>(container.data);
  const CmsHandle message(d2i_CMS_ContentInfo(nullptr, &bytes, static_cast<long>(container.count)));
  rpmtdFreeData(&container);
  const CertificatesHandle certificates(CMS_get1_certs(message.get()));
  unsigned char* key = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(sk_X509_value(certificates.get(), 0)), &key);
  std::array<unsigned char, 32> digest{};
  EVP_Digest(key, static_cast<std::size_t>(size), digest.data(), nullptr, EVP_sha256(), nullptr);
  OPENSSL_free(key);
  std::string text;
  for (const unsigned char byte : digest) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

Package read(rpmts set, const char* path) {
  constexpr off_t leadSize = 96;
  const FileHandle file(Fopen(path, "r.ufdio"));
  Header found = nullptr;
  rpmReadPackageFile(set, file.get(), path, &found);
  const HeaderHandle header(found);
  Fseek(file.get(), leadSize, SEEK_SET);
  const HeaderHandle signatures(headerRead(file.get(), HEADER_MAGIC_YES));
  return {.name = headerGetString(header.get(), RPMTAG_NAME),
          .version = std::string(headerGetString(header.get(), RPMTAG_VERSION)) + '-' +
                     headerGetString(header.get(), RPMTAG_RELEASE),
          .keyId = keyIdIn(signatures.get())};
}

/// Whether the package is not installed, or is newer and has the same key.
bool isDue(sd_bus* bus, const Package& package) {
  sd_bus_message* answer = nullptr;
  if (sd_bus_call_method(bus, "velta.KRV", "/velta/KRV", "velta.KRV", "GetPackage", nullptr, &answer, "s",
                         package.name.c_str()) < 0)
    return true;
  const MessageHandle owner(answer);
  std::string_view version;
  std::string_view keyId;
  sd_bus_message_enter_container(answer, 'a', "{ss}");
  const char* key = nullptr;
  const char* value = nullptr;
  while (sd_bus_message_read(answer, "{ss}", &key, &value) > 0) {
    if (std::string_view(key) == "general.version")
      version = value;
    else if (std::string_view(key) == "certificate.id")
      keyId = value;
  }
  const VersionHandle offered(rpmverParse(package.version.c_str()));
  const VersionHandle installed(rpmverParse(version.data()));
  return rpmverCmp(offered.get(), installed.get()) > 0 && keyId == package.keyId;
}

void install(sd_bus* bus, const char* path) {
  sd_bus_call_method(bus, "velta.KRV", "/velta/KRV", "velta.KRV", "Install", nullptr, nullptr, "sa{sv}", path, 3,
                     "ShowPrompt", "b", 0, "ShowNotifications", "b", 0, "OverrideSource", "(ss)", ".pre.installed.apps",
                     "");
}

} // namespace

/// bench-yardstick FOLDER: the shortest program that installs the packages of FOLDER that are due. It knows no
/// removals, roles and earlier keys, checks nothing and logs nothing.
int main(int, char** argv) {
  sd_bus* connection = nullptr;
  sd_bus_open_system(&connection);
  const BusHandle bus(connection);
  const FolderHandle folder(opendir(argv[1]));
  TransactionSetHandle set;
  while (const dirent* entry = readdir(folder.get())) {
    if (entry->d_name[0] == '.')
      continue;
    if (!set) {
      rpmReadConfigFiles(nullptr, nullptr);
      set.reset(rpmtsCreate());
    }
    const std::string path = std::string(argv[1]) + '/' + entry->d_name;
    if (isDue(bus.get(), read(set.get(), path.c_str())))
      install(bus.get(), path.c_str());
  }
  return 0;
}
