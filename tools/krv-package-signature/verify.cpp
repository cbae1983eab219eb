// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/text/printable.h"
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/dates.h"
#include "tools/krv-package-signature/packages.h"

#include <rpmsign-external/signing.h>
#include <rpmsign-external/verification.h>

#include <ctime>
#include <iostream>
#include <set>

namespace {

using PackageSignatures::CaFolder;
using PackageSignatures::CmsVerification;
using PackageSignatures::Problem;
using PackageSignatures::Verification;

/// The folder of the trusted authorities and the time for the verification.
struct Trust {
  std::string caPath;
  std::optional<std::time_t> at;
};

std::string directoryOf(const Trust& trust) {
  return "the directory of authorities \"" + Common::printable(trust.caPath) + '"';
}

/// Why no package can verify against the directory; nothing if one can.
std::optional<std::string> directoryProblem(const Trust& trust) {
  switch (PackageSignatures::checkCaFolder(trust.caPath.c_str())) {
  case CaFolder::Usable:
    return std::nullopt;
  case CaFolder::Missing:
    return directoryOf(trust) + " is missing";
  case CaFolder::NotADirectory:
    return directoryOf(trust) + " is not a directory";
  case CaFolder::NotRehashed:
    return directoryOf(trust) + " has no certificate under the name that openssl-rehash(1) gives";
  case CaFolder::Unreadable:
    break;
  }
  return directoryOf(trust) + ", or each certificate in it, cannot be read";
}

std::string fileProblem(Problem problem) {
  switch (problem) {
  case Problem::Unsigned:
    return "it is not signed";
  case Problem::ContentIsNoHeader:
    return "its content is not an RPM header";
  default:
    return "it cannot be read";
  }
}

/// A problem of the certificate of `whose` key, or of a certificate above it.
std::string certificateProblem(Problem problem, const std::string& whose, const Trust& trust) {
  const std::string chain = whose + " certificate, or one above it, ";
  switch (problem) {
  case Problem::Untrusted:
    return whose + " certificate does not come from an authority in \"" + Common::printable(trust.caPath) + '"';
  case Problem::Revoked:
    return chain + "is revoked";
  case Problem::RevocationListUnusable:
    return chain + "needs a revocation list that has expired, is not valid yet or cannot be used";
  case Problem::Weak:
    return chain + "has a weak key or digest, below 112 bits";
  case Problem::UsageForbidden:
    return chain + "must not be used for this signature";
  default:
    return chain + "has expired or is not valid yet";
  }
}

std::string expiredProblem(const CmsVerification& cms, const std::string& whose, std::time_t now) {
  if (cms.notAfter && *cms.notAfter < now)
    return whose + " certificate expired: it was valid until " + toText(*cms.notAfter);
  return "a certificate above " + whose + " expired" +
         (cms.authoritiesNotAfter ? ": it was valid until " + toText(*cms.authoritiesNotAfter) : "");
}

std::string notYetValidProblem(const CmsVerification& cms, const std::string& whose, std::time_t now) {
  if (cms.notBefore && *cms.notBefore > now)
    return whose + " certificate is not valid yet: it is valid from " + toText(*cms.notBefore);
  return "a certificate above " + whose + " is not valid yet";
}

std::string earlierKeyProblem(Problem problem, const std::string& keyId, const Trust& trust) {
  switch (problem) {
  case Problem::RoleMissing:
    return "the earlier key " + keyId + " is not a developer's";
  case Problem::SignatureBroken:
    return "the earlier key " + keyId + " does not vouch for the next key";
  default:
    return certificateProblem(problem, "the earlier key " + keyId + "'s", trust);
  }
}

std::vector<std::string> rotationProblems(const CmsVerification& cms, const std::string& whose, const Trust& trust) {
  std::vector<std::string> reasons;
  for (const auto& [keyId, problems] : cms.earlierKeys) {
    for (const Problem problem : problems)
      reasons.push_back(earlierKeyProblem(problem, keyId, trust));
  }
  if (reasons.empty())
    reasons.push_back(whose + " list of earlier keys cannot be read");
  return reasons;
}

std::string signerProblem(Problem problem, const CmsVerification& cms, const std::string& whose, const Trust& trust) {
  const std::time_t now = trust.at.value_or(std::time(nullptr));
  switch (problem) {
  case Problem::RoleMissing:
    return whose + " certificate is neither a developer's nor a source's";
  case Problem::RoleTwice:
    return "it has two signatures of a " + roleName(cms.role);
  case Problem::Expired:
    return expiredProblem(cms, whose, now);
  case Problem::NotYetValid:
    return notYetValidProblem(cms, whose, now);
  case Problem::SignatureBroken:
    return whose + " signature is broken: it is not valid for the content and the certificate";
  default:
    return certificateProblem(problem, whose, trust);
  }
}

std::vector<std::string> reasonsAgainst(const Verification& verification, const Trust& trust) {
  std::vector<std::string> reasons;
  for (const Problem problem : verification.problems)
    reasons.push_back(fileProblem(problem));
  for (std::size_t i = 0; i < verification.cmses.size(); ++i) {
    const CmsVerification& cms = verification.cmses[i];
    const std::string role = roleName(cms.role);
    const std::string whose = role.empty() ? "signature " + std::to_string(i + 1) + "'s" : "the " + role + "'s";
    for (const Problem problem : cms.problems) {
      if (problem != Problem::RotationBroken) {
        reasons.push_back(signerProblem(problem, cms, whose, trust));
        continue;
      }
      for (const std::string& reason : rotationProblems(cms, whose, trust))
        reasons.push_back(reason);
    }
  }
  return reasons;
}

/// The reasons, each once: both signatures of a role have the same one.
std::vector<std::string> withoutRepetitions(const std::vector<std::string>& reasons) {
  std::vector<std::string> result;
  std::set<std::string> seen;
  for (const std::string& reason : reasons) {
    if (seen.insert(reason).second)
      result.push_back(reason);
  }
  return result;
}

std::vector<std::string> verifyPackage(const std::string& path, const Trust& trust) {
  const Common::Posix::FileDescriptor descriptor = openPackage(path);
  const auto file = PackageSignatures::packageFromDescriptor(descriptor.get());
  if (!file) {
    PackageSignatures::packageLayout(descriptor.get()); // throws the reason
    return {"its signatures cannot be read"};
  }
  const Verification verification =
      PackageSignatures::verifyPackage(*file, {.caPath = trust.caPath.c_str(), .at = trust.at});
  std::vector<std::string> reasons = withoutRepetitions(reasonsAgainst(verification, trust));
  if (reasons.empty())
    std::cout << Common::printable(path) << ": OK" << std::endl;
  return reasons;
}

} // namespace

bool verify(const Options& options) {
  const Trust trust{.caPath = options.caPath ? *options.caPath : PackageSignatures::defaultCaPath(), .at = options.at};
  if (const std::optional<std::string> problem = directoryProblem(trust)) {
    complain(*problem);
    return false;
  }
  return forEachPackage(options.packages, [&](const std::string& path) { return verifyPackage(path, trust); });
}
