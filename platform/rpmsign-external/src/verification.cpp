// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/cms.h"
#include "platform/rpmsign-external/src/examination.h"

#include <rpmsign-external/verification.h>

#include <algorithm>
#include <utility>

#include <fcntl.h>

namespace PackageSignatures {

namespace {

/// In the form of RFC 2253. OpenSSL's flags for it escape control characters and every byte above ASCII.
std::string textOf(const X509_NAME* name) {
  const BioPtr text(BIO_new(BIO_s_mem()));
  if (!text || X509_NAME_print_ex(text.get(), name, 0, XN_FLAG_RFC2253) < 0)
    return {};
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(text.get(), &bytes);
  return size > 0 ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

} // namespace

SignerDescription describeSigner(const Cms& cms) {
  const ErrorQueueCleaner cleaner;
  const std::shared_ptr<const Certificate> certificate = cms.certificate();
  X509* const own = Cms::Impl::of(cms).data->certificate->own.get();
  return {.role = roleOf(own),
          .keyId = certificate->keyId(),
          .subgroup = certificate->subgroup(),
          .subject = textOf(X509_get_subject_name(own)),
          .issuer = textOf(X509_get_issuer_name(own)),
          .notBefore = toTime(X509_get0_notBefore(own)),
          .notAfter = toTime(X509_get0_notAfter(own))};
}

bool Verification::isGood() const {
  return problems.empty() &&
         std::ranges::all_of(cmses, [](const CmsVerification& cms) { return cms.problems.empty(); });
}

Verification verifyPackage(const FileWithCmses& file, const VerificationRequest& request) {
  const ErrorQueueCleaner cleaner;
  const FileWithCmses::Impl& impl = FileWithCmses::Impl::of(file);
  Verification result = examine(impl, request, Extent::EveryProblem);
  for (std::size_t i = 0; i < impl.cmses.size(); ++i)
    static_cast<SignerDescription&>(result.cmses[i]) = describeSigner(impl.cmses[i]);
  return result;
}

std::unique_ptr<FileWithCmses> packageFromDescriptor(int descriptor) {
  const ErrorQueueCleaner cleaner;
  FileDescriptor file(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
  return file ? FileWithCmses::Impl::read(std::move(file)) : nullptr;
}

} // namespace PackageSignatures
