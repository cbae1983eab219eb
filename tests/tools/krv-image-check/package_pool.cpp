// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/package_pool.h"

#include "acceptance/package_header.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/temp_directory.h"
#include "tests/support/signing/pki.h"

#include <rpm/header.h>
#include <rpm/rpmtag.h>

#include <cstdint>
#include <fstream>
#include <sstream>

namespace ImageCheckTest {

namespace fs = std::filesystem;

namespace {

constexpr const char* placeholder = "nnnn";

Support::PackageInput inputOf(Content content) {
  Support::PackageInput input{.name = placeholder, .globals = "%global _binary_payload w.ufdio"};
  const auto make = [&](const std::string& path, const std::string& command) {
    input.install += "\nmkdir -p $(dirname %{buildroot}" + path + "); " + command + " %{buildroot}" + path;
    input.files += "\n" + path;
  };
  const auto add = [&](const std::string& path, const std::string& text) { make(path, "echo " + text + " >"); };
  switch (content) {
  case Content::Own:
    break;
  case Content::Shared:
    add("/opt/common/file", "shared");
    break;
  case Content::Other:
    add("/opt/common/file", "other");
    break;
  case Content::Link:
    make("/opt/common/file", "ln -s other");
    break;
  case Content::Ghost:
    input.files += "\n%ghost /opt/common/file";
    break;
  case Content::LinkInPlace:
    make("/opt/common", "ln -s elsewhere");
    break;
  case Content::InPlace:
    add("/opt/common", "file");
    break;
  case Content::InsideOther:
    add("/opt/aaaa/file/below", "below");
    break;
  case Content::Reserved:
    add("/etc/krv/file", "mine");
    break;
  }
  return input;
}

std::string keyOf(const Choice& choice) {
  std::ostringstream key;
  key << choice.name << " " << static_cast<int>(choice.content) << " " << choice.epoch << ":" << choice.version << "-"
      << choice.release << " " << choice.signing.developer << " " << static_cast<int>(choice.flaw);
  for (const std::string& previous : choice.signing.previous)
    key << " " << previous;
  return key.str();
}

void setText(Header header, rpmTagVal tag, const std::string& text) {
  headerDel(header, tag);
  headerPutString(header, tag, text.c_str());
}

void changeIdentity(Header header, const Choice& choice) {
  setText(header, RPMTAG_NAME, choice.flaw == Flaw::BadName ? "aa->" : choice.name);
  setText(header, RPMTAG_VERSION, choice.flaw == Flaw::BadVersion ? "1:0" : choice.version);
  setText(header, RPMTAG_RELEASE, choice.release);
  if (choice.epoch > 0) {
    const auto epoch = static_cast<std::uint32_t>(choice.epoch);
    headerPutUint32(header, RPMTAG_EPOCH, &epoch, 1);
  }
  if (choice.flaw == Flaw::Rebuilt)
    setText(header, RPMTAG_BUILDHOST, "another.example");
  if (choice.flaw == Flaw::ForeignArchitecture)
    setText(header, RPMTAG_ARCH, "alpha");
  if (choice.flaw == Flaw::InstallationTags)
    headerPutString(header, static_cast<rpmTagVal>(Acceptance::InstallationTag::KeyId), "mine");
}

} // namespace

fs::path PackagePool::package(const Choice& choice) {
  const auto [found, isNew] = m_packages.emplace(keyOf(choice), fs::path());
  if (isNew) {
    found->second = m_rpm.path() / "pool" / (std::to_string(m_packages.size()) + ".rpm");
    make(choice, found->second);
  }
  return found->second;
}

fs::path PackagePool::base(Content content) {
  fs::path& path = m_bases[content];
  if (path.empty()) {
    path = m_rpm.path() / "pool" / ("base-" + std::to_string(static_cast<int>(content)) + ".rpm");
    m_rpm.build(inputOf(content), path);
  }
  return path;
}

void PackagePool::make(const Choice& choice, const fs::path& path) {
  if (choice.flaw == Flaw::NoPackage)
    return Support::writeFile(path, "no package\n");
  fs::copy_file(base(choice.content), path);
  Support::replaceEverywhere(path, placeholder, choice.name);
  Support::changeHeader(path, [&](Header header) { changeIdentity(header, choice); });
  if (choice.flaw == Flaw::DamagedPayload)
    Support::replacePayload(path, "no archive");
  if (choice.flaw != Flaw::Unsigned)
    Support::sign(path, choice.signing.developer, choice.signing.previous);
  if (choice.flaw == Flaw::Truncated)
    fs::resize_file(path, 200);
  if (choice.flaw == Flaw::LongerThanPromised)
    std::ofstream(path, std::ios::app) << "more";
}

} // namespace ImageCheckTest
