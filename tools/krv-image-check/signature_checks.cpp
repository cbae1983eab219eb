// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/signature_checks.h"

#include "common/signatures/package_cmses.h"
#include "common/text/printable.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/summary.h"

#include <rpmsign-external/verification.h>

#include <algorithm>
#include <set>
#include <utility>

namespace ImageCheck {

namespace {

using Common::ErrorCode;
using PackageSignatures::CmsVerification;
using PackageSignatures::Problem;
using PackageSignatures::Role;
using PackageSignatures::Verification;

std::string roleName(std::optional<Role> role) {
  if (!role)
    return "a signer without a role";
  return *role == Role::Developer ? "the developer" : "the source";
}

/// Problems of the certificate itself; others are about the signature or the rotation.
bool isRefusedCertificate(const CmsVerification& cms) {
  static const std::set<Problem> problems = {Problem::Untrusted,
                                             Problem::Expired,
                                             Problem::NotYetValid,
                                             Problem::Revoked,
                                             Problem::RevocationListUnusable,
                                             Problem::Weak,
                                             Problem::UsageForbidden};
  return std::ranges::any_of(cms.problems, [](Problem problem) { return problems.contains(problem); });
}

const CmsVerification* firstWithRole(const Verification& verification, Role role) {
  const auto found = std::ranges::find(verification.cmses, role, &CmsVerification::role);
  return found == verification.cmses.end() ? nullptr : &*found;
}

/// In the order of Common::readPackageCmses().
std::optional<ErrorCode> refusalOf(const Verification& verification) {
  const CmsVerification* const developer = firstWithRole(verification, Role::Developer);
  const CmsVerification* const source = firstWithRole(verification, Role::Source);
  if (developer == nullptr)
    return ErrorCode::MissingDeveloperSignature;
  if (isRefusedCertificate(*developer))
    return ErrorCode::IllegalDeveloperCertificate;
  if (source != nullptr && isRefusedCertificate(*source))
    return ErrorCode::IllegalSourceCertificate;
  return verification.isGood() ? std::nullopt : std::optional(ErrorCode::SignatureVerificationFailed);
}

void forgetDates(Verification& verification) {
  for (CmsVerification& cms : verification.cmses)
    for (const Problem problem : {Problem::Expired, Problem::NotYetValid})
      cms.problems.erase(problem);
}

std::chrono::sys_seconds timePoint(std::time_t time) {
  return std::chrono::sys_seconds(std::chrono::seconds(time));
}

/// Collects the findings about one signature.
class SignerChecks {
public:
  SignerChecks(const PackageContext& context, const std::string& entry, const CmsVerification& cms)
      : m_context(context), m_entry(entry), m_cms(cms) {}

  Findings take() {
    checkCertificate();
    checkSignature();
    checkEnds();
    return std::move(m_findings);
  }

private:
  bool has(Problem problem) const { return m_cms.problems.contains(problem); }

  void add(const char* id, const std::string& message, std::map<std::string, std::string> data = {}) {
    const std::string signer = roleName(m_cms.role) + " (" + Common::printable(m_cms.subject) + ")";
    m_findings.push_back({.id = id,
                          .entry = m_entry,
                          .message = signer + ": " + message,
                          .about = m_cms.keyId,
                          .data = std::move(data)});
  }

  void checkCertificate() {
    if (has(Problem::Untrusted) && m_context.hasAuthorities)
      add("signer-untrusted", "no trusted authority stands behind the issuer " + Common::printable(m_cms.issuer));
    if (has(Problem::UsageForbidden))
      add("signer-untrusted", "the certificate must not be used for this, or its authority must not give this role");
    if (has(Problem::Expired))
      add("signer-expired", "the certificate, or one above it, ended before " + dateText(today()) + ends());
    if (has(Problem::NotYetValid))
      add("signer-not-yet-valid", "the certificate, or one above it, begins after " + dateText(today()) + begins());
    if (has(Problem::Revoked))
      add("signer-revoked", "the certificate, or one above it, is on a revocation list");
    if (has(Problem::RevocationListUnusable))
      add("signer-revoked", "a revocation list of an authority above it cannot be used on " + dateText(today()));
    if (has(Problem::Weak))
      add("key-weak", "a key or a digest in its chain has less than 112 bits of security");
  }

  void checkSignature() {
    if (has(Problem::RoleMissing))
      add("role-missing", "the certificate has neither the developer's nor the source's role, or both");
    if (has(Problem::SignatureBroken))
      add("signature-broken", "the signature does not fit the content");
    if (has(Problem::RotationBroken))
      add("rotation-broken", m_cms.earlierKeys.empty() ? "the list of earlier keys cannot be read"
                                                       : "an earlier key does not vouch for the next one");
  }

  void checkEnds() {
    if (m_cms.notAfter && !has(Problem::Expired) && isSoon(*m_cms.notAfter))
      add("signer-expires-soon", "the certificate ends on " + dayOf(*m_cms.notAfter) + daysUntil(*m_cms.notAfter),
          {{"days", std::to_string(daysTo(*m_cms.notAfter))}});
    if (m_cms.authoritiesNotAfter && !has(Problem::Expired) && isSoon(*m_cms.authoritiesNotAfter))
      add("authority-expires-soon",
          "an authority above it ends on " + dayOf(*m_cms.authoritiesNotAfter) + daysUntil(*m_cms.authoritiesNotAfter),
          {{"days", std::to_string(daysTo(*m_cms.authoritiesNotAfter))}});
  }

  std::chrono::sys_days today() const { return std::chrono::floor<std::chrono::days>(m_context.at); }
  long daysTo(std::time_t end) const {
    return static_cast<long>((std::chrono::floor<std::chrono::days>(timePoint(end)) - today()).count());
  }
  bool isSoon(std::time_t end) const {
    return timePoint(end) >= m_context.at && daysTo(end) <= m_context.expiryMargin.count();
  }
  static std::string dayOf(std::time_t time) {
    return dateText(std::chrono::floor<std::chrono::days>(timePoint(time)));
  }
  std::string daysUntil(std::time_t end) const { return ", in " + std::to_string(daysTo(end)) + " days"; }
  std::string ends() const { return m_cms.notAfter ? " (its own end: " + dayOf(*m_cms.notAfter) + ")" : ""; }
  std::string begins() const { return m_cms.notBefore ? " (its own begin: " + dayOf(*m_cms.notBefore) + ")" : ""; }

  const PackageContext& m_context;
  const std::string& m_entry;
  const CmsVerification& m_cms;
  Findings m_findings;
};

/// The findings about the container as a whole.
Findings checkContainer(const std::string& entry, const Verification& verification) {
  Findings findings;
  const auto add = [&](const char* id, const char* message) {
    findings.push_back({.id = id, .entry = entry, .message = message});
  };
  if (verification.problems.contains(Problem::Unsigned))
    add("unsigned", "the package has no signature");
  else if (firstWithRole(verification, Role::Developer) == nullptr &&
           std::ranges::none_of(verification.cmses,
                                [](const auto& cms) { return cms.problems.contains(Problem::RoleMissing); }))
    add("role-missing", "a source has signed the package, but no developer");
  if (std::ranges::any_of(verification.cmses,
                          [](const auto& cms) { return cms.problems.contains(Problem::RoleTwice); }))
    add("role-twice", "two signatures have the same role");
  if (verification.problems.contains(Problem::ContentIsNoHeader))
    add("header-damaged", "the signed content does not begin with an RPM header");
  if (verification.problems.contains(Problem::ContentUnreadable))
    add("check-skipped", "the content cannot be read to verify the signatures");
  return findings;
}

Developer describe(const CmsVerification& cms, Common::DeveloperIdentity identity, bool isTrusted) {
  return {.identity = std::move(identity),
          .subject = cms.subject,
          .issuer = cms.issuer,
          .notAfter = timePoint(cms.notAfter.value_or(0)),
          .isTrusted = isTrusted};
}

} // namespace

SignatureReport checkSignatures(const PackageContext& context, const std::string& entry,
                                const Common::Posix::FileDescriptor& file) {
  const auto package = PackageSignatures::packageFromDescriptor(file.get());
  if (!package)
    return {.sha256 = "",
            .developer = {},
            .refusal = ErrorCode::FileNotFound,
            .findings = {{.id = "signature-unreadable", .entry = entry, .message = "the signatures cannot be read"}}};
  Verification verification = verifyPackage(*package, {.caPath = context.caPath.c_str(),
                                                       .at = std::chrono::system_clock::to_time_t(context.at),
                                                       .fileDigest = PackageSignatures::FileDigest::Computed});
  if (!context.areDatesChecked)
    forgetDates(verification);
  SignatureReport report{.sha256 = verification.fileDigest.value_or(""),
                         .developer = {},
                         .refusal = refusalOf(verification),
                         .findings = checkContainer(entry, verification)};
  for (const CmsVerification& cms : verification.cmses) {
    Findings findings = SignerChecks(context, entry, cms).take();
    report.findings.insert(report.findings.end(), findings.begin(), findings.end());
  }
  if (const CmsVerification* developer = firstWithRole(verification, Role::Developer))
    report.developer = describe(*developer, Common::developerIdentity(package->cmses()), verification.isGood());
  return report;
}

} // namespace ImageCheck
