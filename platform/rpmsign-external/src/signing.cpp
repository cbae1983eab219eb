// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/certificate.h"
#include "platform/rpmsign-external/src/cms.h"
#include "platform/rpmsign-external/src/package_file.h"
#include "platform/rpmsign-external/src/replacement.h"
#include "platform/rpmsign-external/src/rotation_chain.h"
#include "platform/rpmsign-external/src/signature_header.h"
#include "platform/rpmsign-external/src/signing_error.h"
#include "platform/rpmsign-external/src/signing_key.h"

#include <cerrno>
#include <filesystem>
#include <utility>

#include <fcntl.h>

namespace PackageSignatures {

namespace {

struct OpenPackage {
  FileDescriptor file;
  PackageParts parts;
};

OpenPackage openPackage(FileDescriptor file) {
  const std::optional<PackageParts> parts = locateParts(file.get());
  if (!parts)
    throw SigningError("it is not an RPM package");
  return {std::move(file), *parts};
}

OpenPackage openPackage(int directory, const std::string& path, Symlink symlink) {
  FileDescriptor file = openRegularFile(directory, path, symlink);
  const int error = errno;
  if (!file && error != 0)
    failWithErrno("it cannot be opened", error);
  if (!file)
    throw SigningError("it is not a regular file");
  return openPackage(std::move(file));
}

OpenPackage openPackage(const std::string& path) {
  return openPackage(AT_FDCWD, path, Symlink::Followed);
}

/// A package that will be replaced. The path is resolved only once: a process that can write to one of its directories
/// can redirect it at any time.
struct ReplaceablePackage {
  FileDescriptor directory;
  std::string name;
  OpenPackage package;
};

ReplaceablePackage openToReplace(const std::string& path) {
  std::error_code error = std::make_error_code(std::errc::no_such_file_or_directory);
  const std::filesystem::path resolved =
      path.find('\0') == std::string::npos ? std::filesystem::canonical(path, error) : std::filesystem::path();
  if (error)
    failWithErrno("it cannot be opened", error.value());
  FileDescriptor directory(open(resolved.parent_path().c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory)
    failWithErrno("it cannot be opened", errno);
  const std::string name = resolved.has_filename() ? resolved.filename().string() : ".";
  OpenPackage package = openPackage(directory.get(), name, Symlink::Refused);
  return {std::move(directory), name, std::move(package)};
}

std::string readContainer(const OpenPackage& package) {
  if (!package.parts.container)
    return {};
  const PackageParts::Container& place = *package.parts.container;
  std::optional<std::string> container = readRange(package.file.get(), place.offset, place.size);
  if (!container)
    throw SigningError("its signatures cannot be read");
  return std::move(*container);
}

std::string toDer(CMS_ContentInfo* message) {
  unsigned char* der = nullptr;
  const int size = i2d_CMS_ContentInfo(message, &der);
  const BufferPtr owner(der);
  return size < 0 ? std::string() : std::string(der, der + size);
}

[[noreturn]] void failToSign() {
  const char* const reason = ERR_reason_error_string(ERR_peek_error());
  throw SigningError(std::string("the signature cannot be made: ") + (reason == nullptr ? "unknown reason" : reason));
}

[[noreturn]] void failAsNoHeader() {
  throw SigningError("its content is not an RPM header");
}

/// A message of `key` without content; the signer gets the rotation attribute unless `chain` is empty.
CmsPtr startMessage(const SigningKey& key, STACK_OF(X509) * others, unsigned int flags, const std::string& chain = {}) {
  CmsPtr message(CMS_sign(nullptr, nullptr, others, nullptr, flags | CMS_PARTIAL));
  CMS_SignerInfo* const signer =
      message ? CMS_add1_signer(message.get(), key.impl().certificate.get(), key.impl().key.get(), EVP_sha256(),
                                flags | CMS_NOSMIMECAP | CMS_CADES)
              : nullptr;
  if (signer == nullptr)
    failToSign();
  const ObjectPtr attribute = objectFromText(rotationAttribute);
  if (!chain.empty() && CMS_signed_add1_attr_by_OBJ(signer, attribute.get(), V_ASN1_SEQUENCE, chain.data(),
                                                    static_cast<int>(chain.size())) != 1)
    failToSign();
  return message;
}

std::string makeLink(const SigningKey& key, const std::string& nextKeyId, STACK_OF(X509) * others) {
  if (key.role() != Role::Developer)
    throw SigningError("the earlier key " + key.keyId() + " is not a developer's");
  const std::string text = rotationText(nextKeyId);
  const BioPtr content(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  const CmsPtr message = startMessage(key, others, CMS_BINARY);
  if (CMS_final(message.get(), content.get(), nullptr, CMS_BINARY) != 1)
    failToSign();
  return toDer(message.get());
}

/// The value of the rotation attribute; empty if the signer has no earlier keys.
std::string makeRotationChain(const Signer& signer, STACK_OF(X509) * others) {
  if (signer.previous.empty())
    return {};
  const AnySequencePtr links(sk_ASN1_TYPE_new_null());
  for (std::size_t i = 0; i < signer.previous.size(); ++i) {
    const SigningKey& next = i + 1 < signer.previous.size() ? signer.previous[i + 1] : signer.key;
    const std::string link = makeLink(signer.previous[i], next.keyId(), others);
    const OctetStringPtr octets(ASN1_OCTET_STRING_new());
    AnyPtr element(ASN1_TYPE_new());
    if (ASN1_OCTET_STRING_set(octets.get(), reinterpret_cast<const unsigned char*>(link.data()),
                              static_cast<int>(link.size())) != 1 ||
        ASN1_TYPE_set1(element.get(), V_ASN1_OCTET_STRING, octets.get()) != 1 ||
        sk_ASN1_TYPE_push(links.get(), element.get()) <= 0)
      failToSign();
    static_cast<void>(element.release());
  }
  unsigned char* der = nullptr;
  const int size = i2d_ASN1_SEQUENCE_ANY(links.get(), &der);
  const BufferPtr owner(der);
  return {der, der + size};
}

std::string makeDetached(const OpenPackage& package, const Signer& signer) {
  if (!signer.key.role())
    throw SigningError("the certificate of the key is neither a developer's nor a source's");
  const CertificatesPtr others = readCertificates(signer.chainPath);
  const unsigned int flags = CMS_BINARY | CMS_DETACHED;
  const CmsPtr message = startMessage(signer.key, others.get(), flags, makeRotationChain(signer, others.get()));
  // Not CMS_final(): it takes a read error for the end of the content, and would sign the part before it.
  const BioChainPtr digest(CMS_dataInit(message.get(), nullptr));
  if (!digest)
    failToSign();
  bool isFirst = true;
  const bool read = forEachBlock(package.file.get(), package.parts.contentOffset, [&](std::string_view block) {
    if (std::exchange(isFirst, false) && !beginsAsHeader(block))
      failAsNoHeader();
    if (BIO_write(digest.get(), block.data(), static_cast<int>(block.size())) != static_cast<int>(block.size()))
      failToSign();
  });
  if (!read)
    failWithErrno("it cannot be read", errno);
  if (isFirst)
    failAsNoHeader();
  if (CMS_dataFinal(message.get(), digest.get()) != 1)
    failToSign();
  std::string made = toDer(message.get());
  if (mayDefineCurves(made))
    throw SigningError("a key defines its curve instead of naming it");
  return made;
}

void replace(const ReplaceablePackage& target, std::string_view container) {
  const OpenPackage& package = target.package;
  const std::string header = rewriteSignatureHeader(package.file.get(), package.parts, container);
  const std::optional<std::string> lead = readRange(package.file.get(), 0, leadSize);
  if (!lead)
    throw SigningError("it cannot be read");
  Replacement replacement(target.directory.get(), target.name);
  replacement.write(*lead);
  replacement.write(header);
  replacement.writeRest(package.file.get(), package.parts.contentOffset);
  replacement.commit(package.file.get());
}

/// Calls `action` with the bytes and the parsed data of each message in the container.
template <typename Action>
void forEachMessage(std::string_view container, Action action) {
  while (!container.empty()) {
    const std::string_view start = container;
    const std::shared_ptr<const SignedData> data = takeSignedData(container, Keys::Skipped);
    if (!data || attachedContent(*data))
      throw SigningError("its signatures cannot be read");
    action(start.substr(0, start.size() - container.size()), data);
  }
}

} // namespace

namespace {

PackageLayout layoutOf(const OpenPackage& package) {
  PackageLayout layout{.cmses = {}, .contentOffset = package.parts.contentOffset};
  const std::string container = readContainer(package);
  forEachMessage(container, [&](std::string_view bytes, const std::shared_ptr<const SignedData>& data) {
    const off_t offset = package.parts.container->offset + (bytes.data() - container.data());
    layout.cmses.push_back(
        {.cms = Cms(std::make_shared<const Cms::Impl>(Cms::Impl{data})), .offset = offset, .size = bytes.size()});
  });
  return layout;
}

} // namespace

PackageLayout packageLayout(const std::string& packagePath) {
  const ErrorQueueCleaner cleaner;
  return layoutOf(openPackage(packagePath));
}

PackageLayout packageLayout(int descriptor) {
  const ErrorQueueCleaner cleaner;
  FileDescriptor file(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
  if (!file)
    failWithErrno("it cannot be opened", errno);
  return layoutOf(openPackage(std::move(file)));
}

std::string makeCms(const std::string& packagePath, const Signer& signer) {
  const ErrorQueueCleaner cleaner;
  return makeDetached(openPackage(packagePath), signer);
}

void replaceContainer(const std::string& packagePath, std::string_view container) {
  const ErrorQueueCleaner cleaner;
  replace(openToReplace(packagePath), container);
}

void signPackage(const std::string& packagePath, const Signer& signer) {
  const ErrorQueueCleaner cleaner;
  const ReplaceablePackage target = openToReplace(packagePath);
  std::string added = makeDetached(target.package, signer);
  std::string result;
  const std::string container = readContainer(target.package);
  forEachMessage(container, [&](std::string_view bytes, const std::shared_ptr<const SignedData>& data) {
    if (roleOf(data->certificate->own.get()) != signer.key.role()) {
      result += bytes;
    } else {
      result += added;
      added.clear();
    }
  });
  replace(target, result + added);
}

} // namespace PackageSignatures
