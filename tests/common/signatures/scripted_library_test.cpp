// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
// The same checks over a signature library that answers as it is told: what the bundled one never does, such as a
// signature without its certificate, another library may.
#include "common/signatures/package_cmses.h"
#include "tests/common/signatures/raised.h"

#include <gtest/gtest.h>

namespace {

struct Script {
  bool opens = true;
  bool hasDeveloper = true;
  bool hasSource = true;
  bool developerHasCertificate = true;
  bool sourceHasCertificate = true;
  bool developerIsLegal = true;
  bool sourceIsLegal = true;
  bool signaturesHold = true;
  /// The calls to verify, with their directory.
  std::vector<std::string> calls = {};
};

Script script;

} // namespace

namespace PackageSignatures {

struct Certificate::Impl {
  std::string name;
  bool legal;
};
struct Cms::Impl {
  std::string name;
};
struct RotationChain::Impl {};
struct FileWithCmses::Impl {};

Certificate::Certificate(std::shared_ptr<const Impl> impl) : m_impl(std::move(impl)) {}
bool Certificate::verify(const char* caPath) const {
  script.calls.push_back(m_impl->name + " " + caPath);
  return m_impl->legal;
}
std::string Certificate::keyId() const {
  return m_impl->name + "'s key";
}
Subgroup Certificate::subgroup() const {
  return Subgroup::Extended;
}
std::string subgroupToString(Subgroup subgroup) {
  return subgroup == Subgroup::Extended ? "the subgroup" : "";
}

RotationChain::RotationChain(std::shared_ptr<const Impl> impl) : m_impl(std::move(impl)) {}
std::vector<std::string> RotationChain::previousKeyids() const {
  return {"one", "two"};
}

Cms::Cms(std::shared_ptr<const Impl> impl) : m_impl(std::move(impl)) {}
std::shared_ptr<const Certificate> Cms::certificate() const {
  const bool developer = m_impl->name == "developer";
  if (!(developer ? script.developerHasCertificate : script.sourceHasCertificate))
    return nullptr;
  const bool legal = developer ? script.developerIsLegal : script.sourceIsLegal;
  return std::make_shared<Certificate>(std::make_shared<Certificate::Impl>(Certificate::Impl{m_impl->name, legal}));
}
RotationChain Cms::rotationChain() const {
  return RotationChain(std::make_shared<RotationChain::Impl>());
}

std::optional<Cms> developerCmsFromVector(const std::vector<Cms>&) {
  return script.hasDeveloper ? std::optional<Cms>(std::make_shared<Cms::Impl>(Cms::Impl{"developer"})) : std::nullopt;
}
std::optional<Cms> clientCmsFromVector(const std::vector<Cms>&) {
  return script.hasSource ? std::optional<Cms>(std::make_shared<Cms::Impl>(Cms::Impl{"source"})) : std::nullopt;
}

FileWithCmses::FileWithCmses(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
FileWithCmses::~FileWithCmses() = default;
std::unique_ptr<FileWithCmses> FileWithCmses::fromPath(const std::string&) {
  return std::unique_ptr<FileWithCmses>(script.opens ? new FileWithCmses(std::make_unique<Impl>()) : nullptr);
}
std::vector<Cms> FileWithCmses::cmses() const {
  return {};
}
bool FileWithCmses::verifyCmses(const char* caPath) {
  script.calls.push_back(std::string("content ") + caPath);
  return script.signaturesHold;
}

std::string defaultCaPath() {
  return "the authorities";
}

} // namespace PackageSignatures

namespace {

using Common::ErrorCode;

const Raised noCertificate{ErrorCode::MissingDeveloperSignature, "Package doesn't have developer certificate"};
const Raised noSignature{ErrorCode::MissingDeveloperSignature, "Package doesn't have developer signature"};
const Raised illegalDeveloper{ErrorCode::IllegalDeveloperCertificate,
                              "Package is signed with a non-legal developer certificate"};
const Raised illegalSource{ErrorCode::IllegalSourceCertificate,
                           "Package is signed with a non-legal source certificate"};
const Raised badSignature{ErrorCode::SignatureVerificationFailed, "Package signature verification failed"};

const std::string developerCall = "developer the authorities";
const std::string sourceCall = "source the authorities";
const std::string contentCall = "content the authorities";

TEST(SignatureChecks, AreMadeInOrderUntilOneFails) {
  const struct {
    Script script;
    std::optional<Raised> error;
    std::vector<std::string> calls;
  } cases[] = {
      {{}, std::nullopt, {developerCall, sourceCall, contentCall}},
      {{.hasSource = false}, std::nullopt, {developerCall, contentCall}},
      {{.hasDeveloper = false}, noCertificate, {}},
      {{.developerHasCertificate = false}, noCertificate, {}},
      {{.developerIsLegal = false, .sourceIsLegal = false, .signaturesHold = false}, illegalDeveloper, {developerCall}},
      {{.sourceIsLegal = false, .signaturesHold = false}, illegalSource, {developerCall, sourceCall}},
      {{.sourceHasCertificate = false}, illegalSource, {developerCall}},
      {{.signaturesHold = false}, badSignature, {developerCall, sourceCall, contentCall}},
  };
  for (const auto& [answers, error, calls] : cases) {
    script = answers;
    EXPECT_EQ(raisedBy([] { Common::readPackageCmses("x", true); }), error);
    EXPECT_EQ(script.calls, calls);
  }
}

TEST(SignatureChecks, AreMadeOnlyOnRequest) {
  script = {.hasDeveloper = false, .developerIsLegal = false, .sourceIsLegal = false, .signaturesHold = false};
  EXPECT_EQ(raisedBy([] { Common::readPackageCmses("x", false); }), std::nullopt);
  EXPECT_EQ(script.calls, std::vector<std::string>());
}

TEST(SignatureChecks, NeedAFile) {
  script = {.opens = false};
  EXPECT_EQ(raisedBy([] { Common::readPackageCmses("a\"b", false); }),
            (Raised{ErrorCode::FileNotFound, "Couldn't open RPM package for reading cmses: a\"b"}));
}

TEST(SignatureChecks, NeedTheDevelopersCertificate) {
  for (const Script& answers : {Script{.hasDeveloper = false}, Script{.developerHasCertificate = false}}) {
    script = answers;
    EXPECT_EQ(raisedBy([] { Common::developerCertificate({}); }), noCertificate);
    EXPECT_EQ(raisedBy([] { Common::developerIdentity({}); }), noSignature);
  }
}

TEST(SignatureChecks, TakeTheIdentityUnchangedFromTheLibrary) {
  script = {};
  const Common::DeveloperIdentity identity = Common::developerIdentity({});
  EXPECT_EQ(identity.keyId, "developer's key");
  EXPECT_EQ(identity.subgroup, "the subgroup");
  EXPECT_EQ(identity.previousKeyIds, (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(Common::developerCertificate({}).keyId(), "developer's key");
}

} // namespace
