// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/faults/supervised.h"
#include "tests/support/files/special_files.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/process.h"
#include "tests/support/signing/authority.h"
#include "tests/support/signing/pki.h"
#include "tests/tools/krv-package-signature/tool_fixture.h"

#include <gtest/gtest.h>
#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/signing.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

using Support::Pki;
using Support::ProcessResult;
using Support::readFile;

/// The temporary file that replaces a package.
const std::string newFile = "*/.krv-package-*";

TEST_F(PackageSignatureTool, SignsInPlaceAndVerifies) {
  expectResult(signAs("alice", {"a.rpm"}), 0, "", "");
  expectResult(signAs("source", {"a.rpm"}), 0, "", "");
  expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", "");
  EXPECT_EQ(names(), std::vector<std::string>{"a.rpm"});
}

TEST_F(PackageSignatureTool, AcceptsOptionsAfterThePackages) {
  expectResult(runTool({"sign", "a.rpm", "--cert=" + Pki::instance().certificate("alice").string(),
                        "--key=" + Pki::instance().key("alice").string()}),
               0, "", "");
  expectResult(verifyTool({"--", "a.rpm"}), 0, "a.rpm: OK\n", "");
}

/// A date of a certificate in the form of the tool.
std::string dateOf(const std::filesystem::path& certificate, const std::string& option) {
  const std::string date = Support::runOrThrow({"openssl", "x509", "-in", certificate, "-noout", option});
  return Support::runOrThrow({"date", "--utc", "--date", date.substr(date.find('=') + 1), "+%Y-%m-%dT%H:%M:%SZ"})
      .substr(0, 20);
}

std::string identityOfSample(const std::string& file) {
  return file + "\n  name: sample\n  version: 1.0-1\n  architecture: noarch\n";
}

/// Returns the lines of `show` for a signature, without the first one.
std::string shownSignature(const PackageSignatures::PackageLayout::StoredCms& stored, const std::string& name,
                           const std::string& subject) {
  const Pki& pki = Pki::instance();
  return "    stored: " + std::to_string(stored.size) + " bytes from byte " + std::to_string(stored.offset) +
         "\n    key id: " + pki.keyId(name) + "\n    subject: " + subject + "\n    issuer: CN=KRV sandbox authority" +
         "\n    valid from: " + dateOf(pki.certificate(name), "-startdate") +
         "\n    valid until: " + dateOf(pki.certificate(name), "-enddate") + "\n    subgroup: regular\n";
}

TEST_F(PackageSignatureTool, ShowsEachSignature) {
  signAs("alice-3", {"--previous", previous("alice"), "--previous", previous("alice-2"), "a.rpm"});
  signAs("source", {"a.rpm"});
  const PackageSignatures::PackageLayout layout = PackageSignatures::packageLayout(folder() / "a.rpm");
  const Pki& pki = Pki::instance();
  expectResult(runTool({"show", "a.rpm"}), 0,
               identityOfSample("a.rpm") + "  content: from byte " + std::to_string(layout.contentOffset) +
                   "\n  signature 1: developer\n" + shownSignature(layout.cmses.at(0), "alice-3", "CN=Alice") +
                   "    previous key id: " + pki.keyId("alice") + "\n    previous key id: " + pki.keyId("alice-2") +
                   "\n  signature 2: source\n" + shownSignature(layout.cmses.at(1), "source", "CN=Store"),
               "");
}

TEST_F(PackageSignatureTool, ShowsAnUnsignedPackage) {
  const std::string offset = std::to_string(PackageSignatures::packageLayout(folder() / "a.rpm").contentOffset);
  expectResult(runTool({"show", "a.rpm"}), 0,
               identityOfSample("a.rpm") + "  content: from byte " + offset + "\n  not signed\n", "");
  expectResult(runTool({"show", "--json", "a.rpm"}), 0,
               R"([{"path":"a.rpm","name":"sample","version":"1.0-1","architecture":"noarch","contentOffset":)" +
                   offset + R"(,"cmses":[]}])" + "\n",
               "");
}

TEST_F(PackageSignatureTool, ShowsJson) {
  const std::string name = "a \"b\"\n\\c \xc3\xa9\xff\x7f.rpm";
  sandbox().build({.preamble = "Epoch: 3"}, folder() / "a.rpm");
  std::filesystem::rename(folder() / "a.rpm", folder() / name);
  signAs("system", {"--previous", previous("bob"), name});
  const PackageSignatures::PackageLayout layout = PackageSignatures::packageLayout(folder() / name);
  const Pki& pki = Pki::instance();
  const std::string expected =
      R"([{"path":"a \"b\"\n\\c \u00e9\ufffd\u007f.rpm","name":"sample","version":"3:1.0-1","architecture":"noarch",)"
      R"("contentOffset":)" +
      std::to_string(layout.contentOffset) + R"(,"cmses":[{"role":"developer","keyId":")" + pki.keyId("system") +
      R"(","subject":"CN=System developer,OU=system","issuer":"CN=KRV sandbox authority","notBefore":")" +
      dateOf(pki.certificate("system"), "-startdate") + R"(","notAfter":")" +
      dateOf(pki.certificate("system"), "-enddate") + R"(","subgroup":"system","previousKeyIds":[")" +
      pki.keyId("bob") + R"("],"offset":)" + std::to_string(layout.cmses.at(0).offset) + R"(,"size":)" +
      std::to_string(layout.cmses.at(0).size) + "}]}]\n";
  expectResult(runTool({"show", "--json", name}), 0, expected, "");
}

TEST_F(PackageSignatureTool, SendsNoControlCharactersOfAPackageToTheTerminal) {
  const std::string name = "a\x1b[31m\xc2\x9b.rpm";
  std::string bytes = package();
  for (std::size_t at = bytes.find(std::string("\0sample\0", 8)); at != std::string::npos;
       at = bytes.find(std::string("\0sample\0", 8), at + 1))
    bytes.replace(at + 1, 6, "s\x1b[1m\x9b", 6);
  Support::writeFile(folder() / name, bytes);
  const std::string offset = std::to_string(PackageSignatures::packageLayout(folder() / name).contentOffset);
  expectResult(runTool({"show", name}), 0,
               R"(a\x1b[31m\xc2\x9b.rpm
  name: s\x1b[1m\x9b
  version: 1.0-1
  architecture: noarch
  content: from byte )" +
                   offset + "\n  not signed\n",
               "");
  expectResult(runTool({"show", "--json", name}), 0,
               R"([{"path":"a\u001b[31m\u009b.rpm","name":"s\u001b[1m\ufffd","version":"1.0-1",)"
               R"("architecture":"noarch","contentOffset":)" +
                   offset + R"(,"cmses":[]}])" + "\n",
               "");
  expectResult(verifyTool({name}), 1, "", tool + R"(a\x1b[31m\xc2\x9b.rpm: it is not signed)" + "\n");
}

TEST_F(PackageSignatureTool, ShowsThatAPackageSaysNothingAboutItself) {
  signAs("alice", {"a.rpm"});
  const PackageSignatures::PackageLayout layout = PackageSignatures::packageLayout(folder() / "a.rpm");
  Support::writeFile(folder() / "a.rpm", package().substr(0, static_cast<std::size_t>(layout.contentOffset)) + "text");
  expectResult(runTool({"show", "a.rpm"}), 0,
               "a.rpm\n  name: unknown\n  version: unknown\n  architecture: unknown\n  content: from byte " +
                   std::to_string(layout.contentOffset) + "\n  signature 1: developer\n" +
                   shownSignature(layout.cmses.at(0), "alice", "CN=Alice"),
               "");
  const ProcessResult json = runTool({"show", "--json", "a.rpm"});
  EXPECT_TRUE(json.output.starts_with(R"([{"path":"a.rpm","name":null,"version":null,"architecture":null,)"))
      << json.output;
}

TEST_F(PackageSignatureTool, ShowsWithoutAnRpmDatabase) {
  std::filesystem::remove_all(sandbox().database());
  EXPECT_EQ(runTool({"show", "a.rpm"}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(sandbox().database()));
}

TEST_F(PackageSignatureTool, ShowsUntrustedSigners) {
  signAs("foreign", {"a.rpm"});
  EXPECT_EQ(runTool({"show", "a.rpm"}).status, 0);
}

TEST_F(PackageSignatureTool, ReplacesTheSignatureOfTheSameRole) {
  signAs("alice", {"a.rpm"});
  signAs("bob", {"a.rpm"});
  const auto file = PackageSignatures::FileWithCmses::fromPath(folder() / "a.rpm");
  ASSERT_EQ(file->cmses().size(), 1U);
  EXPECT_EQ(file->cmses()[0].certificate()->keyId(), Pki::instance().keyId("bob"));
}

TEST_F(PackageSignatureTool, EmbedsIntermediateCertificates) {
  signAs("branch", {"a.rpm"});
  EXPECT_EQ(verifyTool({"a.rpm"}).status, 1);
  expectResult(signAs("branch", {"--chain", Pki::instance().certificate("branch-ca"), "a.rpm"}), 0, "", "");
  EXPECT_EQ(verifyTool({"a.rpm"}).status, 0);
}

TEST_F(PackageSignatureTool, KeepsModeAndAttributes) {
  const std::string path = folder() / "a.rpm";
  if (setxattr(path.c_str(), "user.color", "blue", 4, 0) != 0 && errno == ENOTSUP)
    GTEST_SKIP() << "the temporary folder's file system has no attributes of users";
  ASSERT_EQ(chmod(path.c_str(), 06741), 0);
  ASSERT_EQ(setxattr(path.c_str(), "user.nothing", "", 0, 0), 0);
  EXPECT_EQ(signAs("alice", {"a.rpm"}).status, 0);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 06741U);
  char value[8] = {};
  EXPECT_EQ(getxattr(path.c_str(), "user.color", value, sizeof value), 4);
  EXPECT_STREQ(value, "blue");
  EXPECT_EQ(getxattr(path.c_str(), "user.nothing", value, sizeof value), 0);
}

TEST_F(PackageSignatureTool, KeepsTheOwner) {
  if (geteuid() != 0)
    GTEST_SKIP() << "only root can give a file away";
  const std::string path = folder() / "a.rpm";
  ASSERT_EQ(chown(path.c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod(path.c_str(), 04750), 0);
  EXPECT_EQ(signAs("alice", {"a.rpm"}).status, 0);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 5678U);
  EXPECT_EQ(status.st_mode & 07777U, 04750U);
}

TEST_F(PackageSignatureTool, FollowsASymlink) {
  std::filesystem::create_directory(folder() / "links");
  std::filesystem::create_symlink("../a.rpm", folder() / "links/b.rpm");
  expectResult(signAs("alice", {"links/b.rpm"}), 0, "", "");
  EXPECT_TRUE(std::filesystem::is_symlink(folder() / "links/b.rpm"));
  expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", "");
  EXPECT_EQ(names(), (std::vector<std::string>{"a.rpm", "links"}));
}

TEST_F(PackageSignatureTool, ContinuesWithTheOtherPackagesWhenOneFails) {
  Support::writeFile(folder() / "text", "no package\n");
  std::filesystem::copy_file(folder() / "a.rpm", folder() / "b.rpm");
  const std::string errors = tool + "text: it is not an RPM package\n" + tool +
                             "missing: it cannot be opened: No such file or directory\n" + tool +
                             ".: it is not a regular file\n";
  expectResult(signAs("alice", {"a.rpm", "text", "missing", ".", "b.rpm"}), 1, "", errors);
  EXPECT_EQ(readFile(folder() / "text"), "no package\n");
  expectResult(verifyTool({"a.rpm", "text", "missing", ".", "b.rpm"}), 1, "a.rpm: OK\nb.rpm: OK\n", errors);
  const ProcessResult shown = runTool({"show", "--json", "text", "missing", "."});
  expectResult(shown, 1, "[]\n", errors);
  EXPECT_EQ(names(), (std::vector<std::string>{"a.rpm", "b.rpm", "text"}));
}

TEST_F(PackageSignatureTool, RefusesAKeyThatDoesNotMatchItsCertificate) {
  const std::string before = package();
  const Pki& pki = Pki::instance();
  expectResult(runTool({"sign", "--key", pki.key("alice"), "--cert", pki.certificate("bob"), "a.rpm"}), 1, "",
               tool + "the key " + pki.key("alice").string() + " does not belong to the certificate " +
                   pki.certificate("bob").string() + "\n");
  EXPECT_TRUE(package() == before);
}

TEST_F(PackageSignatureTool, RefusesACertificateWithoutARole) {
  const std::string before = package();
  for (const char* name : {"roleless", "both"}) {
    expectResult(signAs(name, {"a.rpm"}), 1, "",
                 tool + "a.rpm: the certificate of the key is neither a developer's nor a source's\n");
    EXPECT_TRUE(package() == before);
  }
}

TEST_F(PackageSignatureTool, RefusesSignaturesThatCannotBeRead) {
  PackageSignatures::replaceContainer(folder() / "a.rpm", "no signature");
  const std::string before = package();
  const std::string error = tool + "a.rpm: its signatures cannot be read\n";
  expectResult(signAs("alice", {"a.rpm"}), 1, "", error);
  expectResult(runTool({"show", "a.rpm"}), 1, "", error);
  expectResult(verifyTool({"a.rpm"}), 1, "", error);
  EXPECT_TRUE(package() == before);
}

/// Verifies against an authority whose certificates may be of any kind.
class Reasons : public PackageSignatureTool {
protected:
  const Support::Authority& root() const { return m_root; }

  void sign(const std::string& name, const std::vector<std::string>& previous = {}) const {
    PackageSignatures::Signer signer{.key = key(name)};
    for (const std::string& earlier : previous)
      signer.previous.push_back(key(earlier));
    PackageSignatures::signPackage(folder() / "a.rpm", signer);
  }

  PackageSignatures::SigningKey key(const std::string& name) const {
    return PackageSignatures::SigningKey::load(root().key(name), root().pem(name));
  }

  ProcessResult verify(const std::vector<std::string>& options = {}) const {
    std::vector<std::string> arguments = {"verify", "--ca-path", root().trusted(), "a.rpm"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return runTool(arguments);
  }

  /// Expects that "a.rpm" does not verify, for these reasons.
  void expectReasons(const std::vector<std::string>& reasons, const std::vector<std::string>& options = {}) const {
    std::string lines;
    for (const std::string& reason : reasons)
      lines += tool + "a.rpm: " + reason + "\n";
    expectResult(verify(options), 1, "", lines);
  }

private:
  Support::Authority m_root{sandbox().path() / "root"};
};

TEST_F(Reasons, ThereIsNoSignature) {
  expectReasons({"it is not signed"});
}

TEST_F(Reasons, TheAuthorityIsUnknown) {
  signAs("alice", {"a.rpm"});
  signAs("source", {"a.rpm"});
  const std::string folder = root().trusted();
  expectReasons({"the developer's certificate does not come from an authority in \"" + folder + '"',
                 "the source's certificate does not come from an authority in \"" + folder + '"'});
}

TEST_F(Reasons, ACertificateHasExpired) {
  root().certifyBetween("alice", "20000101000000Z", "20010101000000Z");
  sign("alice");
  expectReasons({"the developer's certificate expired: it was valid until 2001-01-01T00:00:00Z"});
}

TEST_F(Reasons, ACertificateIsNotValidYet) {
  root().certifyBetween("store", "20980101000000Z", "20990101000000Z", "store");
  sign("store");
  expectReasons({"the source's certificate is not valid yet: it is valid from 2098-01-01T00:00:00Z"});
}

TEST_F(Reasons, AnAuthorityHasExpired) {
  root().certifyBetween("old", "20000101000000Z", "20010101000000Z", "authority", "");
  root().trust("old");
  root().certify("alice", {.authority = "old"});
  sign("alice");
  expectReasons({"a certificate above the developer's expired: it was valid until 2001-01-01T00:00:00Z"});
}

TEST_F(Reasons, DependOnTheGivenDay) {
  root().certifyBetween("old", "20000101000000Z", "20490101000000Z", "authority", "");
  root().trust("old");
  root().certifyBetween("alice", "20000601000000Z", "20010101000000Z", "developer", "old");
  sign("alice");
  expectResult(verify({"--at", "2000-06-01"}), 0, "a.rpm: OK\n", "");
  expectReasons({"the developer's certificate is not valid yet: it is valid from 2000-06-01T00:00:00Z"},
                {"--at", "2000-05-31"});
}

TEST_F(Reasons, ACertificateIsRevoked) {
  root().certify("alice");
  root().revoke("alice");
  root().publishList("root");
  sign("alice");
  expectReasons({"the developer's certificate, or one above it, is revoked"});
}

TEST_F(Reasons, ARevocationListHasExpired) {
  root().certify("alice");
  root().publishList("root", {"-crl_lastupdate", "20000101000000Z", "-crl_nextupdate", "20010101000000Z"});
  sign("alice");
  expectReasons({"the developer's certificate, or one above it, needs a revocation list that has expired, is not valid "
                 "yet or cannot be used"});
}

TEST_F(Reasons, AKeyIsWeak) {
  root().certify("alice", {.key = "rsa:1024"});
  sign("alice");
  expectReasons({"the developer's certificate, or one above it, has a weak key or digest, below 112 bits"});
}

TEST_F(Reasons, AKeyIsNotForSignatures) {
  root().certify("alice", {.extensions = {"extendedKeyUsage=" + Support::krvArc + ".1", "keyUsage=keyAgreement"}});
  sign("alice");
  expectReasons({"the developer's certificate, or one above it, must not be used for this signature"});
}

TEST_F(Reasons, TheContentHasChanged) {
  root().certify("alice");
  sign("alice");
  Support::writeFile(folder() / "a.rpm", package() + '\n');
  expectReasons({"the developer's signature is broken: it is not valid for the content and the certificate"});
}

TEST_F(Reasons, TheContentIsNoHeader) {
  root().certify("alice");
  sign("alice");
  const auto offset = static_cast<std::size_t>(PackageSignatures::packageLayout(folder() / "a.rpm").contentOffset);
  Support::writeFile(folder() / "a.rpm", package().substr(0, offset));
  expectReasons({"its content is not an RPM header"});
}

TEST_F(Reasons, ARoleOccursTwice) {
  root().certify("alice");
  const std::string cms = PackageSignatures::makeCms(folder() / "a.rpm", {.key = key("alice")});
  PackageSignatures::replaceContainer(folder() / "a.rpm", cms + cms);
  expectReasons({"it has two signatures of a developer"});
}

TEST_F(Reasons, ARoleIsMissing) {
  root().certify("alice");
  root().certify("nobody", {.extensions = {}});
  const auto offset = static_cast<std::size_t>(PackageSignatures::packageLayout(folder() / "a.rpm").contentOffset);
  Support::writeFile(folder() / "content", package().substr(offset));
  Support::runOrThrow({"openssl", "cms", "-sign", "-binary", "-cades", "-outform", "DER", "-in", folder() / "content",
                       "-signer", root().pem("nobody"), "-inkey", root().key("nobody"), "-out", folder() / "cms"});
  PackageSignatures::replaceContainer(folder() / "a.rpm",
                                      PackageSignatures::makeCms(folder() / "a.rpm", {.key = key("alice")}) +
                                          readFile(folder() / "cms"));
  expectReasons({"signature 2's certificate is neither a developer's nor a source's"});
}

TEST_F(Reasons, AnEarlierKeyIsRevokedOrUnknown) {
  root().certify("alice");
  root().certify("alice-2");
  root().certify("alice-3");
  root().certify("other", {.authority = "", .extensions = Support::ofAnAuthority});
  root().certify("alice", {.authority = "other"});
  root().revoke("alice-2");
  root().publishList("root");
  sign("alice-3", {"alice", "alice-2"});
  expectReasons({"the earlier key " + key("alice").keyId() + "'s certificate does not come from an authority in \"" +
                     root().trusted().string() + '"',
                 "the earlier key " + key("alice-2").keyId() + "'s certificate, or one above it, is revoked"});
}

TEST_F(Reasons, AreAllGiven) {
  root().certifyBetween("alice", "20000101000000Z", "20010101000000Z");
  root().revoke("alice");
  root().publishList("root");
  sign("alice");
  Support::writeFile(folder() / "a.rpm", package() + '\n');
  expectReasons({"the developer's certificate expired: it was valid until 2001-01-01T00:00:00Z",
                 "the developer's certificate, or one above it, is revoked",
                 "the developer's signature is broken: it is not valid for the content and the certificate"});
}

TEST_F(PackageSignatureTool, ReportsADirectoryOfAuthoritiesThatCannotBeUsed) {
  signAs("alice", {"a.rpm"});
  std::filesystem::create_directory(folder() / "plain");
  std::filesystem::copy_file(Pki::instance().certificate("ca"), folder() / "plain/ca.pem");
  std::filesystem::create_directory(folder() / "dangling");
  std::filesystem::create_symlink("nowhere", folder() / "dangling/01234567.0");
  const std::pair<std::string, std::string> cases[] = {
      {"", "is missing"},
      {"missing", "is missing"},
      {"mis\x1bsing", "is missing"},
      {"a.rpm", "is not a directory"},
      {"plain", "has no certificate under the name that openssl-rehash(1) gives"},
      {"dangling", "cannot be read"},
  };
  for (const auto& [path, reason] : cases) {
    const std::string shown = path == "mis\x1bsing" ? "mis\\x1bsing" : path;
    expectResult(runTool({"verify", "--ca-path", path, "a.rpm", "a.rpm"}), 1, "",
                 tool + "the directory of authorities \"" + shown + '"' +
                     (path == "dangling" ? ", or each certificate in it, " : " ") + reason + "\n");
  }
}

TEST_F(PackageSignatureTool, RefusesADayThatDoesNotExist) {
  for (const std::string day : {"", "2026", "2026-1-1", "2026-02-30", "2026-01-01T00:00:00Z", " 2026-01-01", "today"})
    expectResult(runTool({"verify", "--at", day, "a.rpm"}), 2, "",
                 tool + "--at: expected YYYY-MM-DD, not " + day + "\nTry: krv-package-signature --help\n");
}

TEST_F(PackageSignatureTool, TrustsTheSystemsAuthoritiesByDefault) {
  signAs("alice", {"a.rpm"});
  Support::trustAuthorityUnder(sandbox().path());
  expectResult(runTool({"verify", "a.rpm"}, {{"KRV_ROOT_FS", sandbox().path()}}), 0, "a.rpm: OK\n", "");
  expectResult(runTool({"verify", "a.rpm"}, {{"KRV_ROOT_FS", folder()}}), 1, "",
               tool + "the directory of authorities \"" + (folder() / "etc/krv/trusted-ca").string() +
                   "\" is missing\n");
}

TEST_F(PackageSignatureTool, IgnoresTheVariableIfItHasMorePrivilegesThanItsUser) {
  const std::filesystem::path privileged = folder() / "tool";
  struct statvfs place {};
  ASSERT_EQ(statvfs(folder().c_str(), &place), 0);
  if (geteuid() != 0 || (place.f_flag & ST_NOSUID) != 0 || prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) != 0)
    GTEST_SKIP() << "a program cannot be given another group here";
  std::filesystem::copy_file(Support::program("krv-package-signature"), privileged);
  ASSERT_EQ(chown(privileged.c_str(), 0, getegid() + 1), 0);
  ASSERT_EQ(chmod(privileged.c_str(), 02755), 0);
  signAs("alice", {"a.rpm"});
  Support::trustAuthorityUnder(sandbox().path());
  expectResult(Support::run({privileged, "verify", "a.rpm"}, {{"KRV_ROOT_FS", sandbox().path()}}, folder()), 1, "",
               tool + "the directory of authorities \"/etc/krv/trusted-ca\" is missing\n");
}

TEST_F(PackageSignatureTool, AsksForNoPassPhraseOfACertificate) {
  const Pki& pki = Pki::instance();
  const std::filesystem::path locked = folder() / "certificate.pem";
  std::string text = readFile(pki.certificate("alice"));
  text.insert(text.find('\n', text.find("-----BEGIN")) + 1,
              "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-256-CBC,00112233445566778899AABBCCDDEEFF\n\n");
  Support::writeFile(locked, text);
  const std::string key = pki.key("alice");
  const std::string certificate = pki.certificate("alice");
  const struct {
    std::vector<std::string> arguments;
    std::string error;
  } cases[] = {
      {{"--key", key, "--cert", locked}, locked.string() + " is not a PEM file of a certificate"},
      {{"--key", key, "--cert", certificate, "--chain", locked},
       "a.rpm: " + locked.string() + " is not a PEM file of certificates"},
  };
  for (const auto& [arguments, error] : cases) {
    const Terminal terminal;
    std::vector<std::string> command = {Support::program("krv-package-signature"), "sign", "a.rpm"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Support::Process process(command, {}, folder(), [&] { terminal.control(); });
    expectResult(process.wait(), 1, "", tool + error + "\n");
    EXPECT_EQ(terminal.text(), "");
  }
}

TEST_F(PackageSignatureTool, LeavesThePackageAloneWhenTheNewOneCannotBeWritten) {
  const std::string before = package();
  const std::string limited = "ulimit -f 2; exec \"$0\" \"$@\"";
  const Pki& pki = Pki::instance();
  const ProcessResult result = Support::run({"bash", "-c", limited, Support::program("krv-package-signature"), "sign",
                                             "--key", pki.key("alice"), "--cert", pki.certificate("alice"), "a.rpm"},
                                            {}, folder());
  expectResult(result, 1, "", tool + "a.rpm: the new file cannot be written: File too large\n");
  EXPECT_TRUE(package() == before);
  EXPECT_EQ(names(), std::vector<std::string>{"a.rpm"});
}

/// Runs the tool with an action or an error at one of its system calls on files of the sandbox.
class DisturbedTool : public PackageSignatureTool {
protected:
  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
  }

  ProcessResult runTool(const std::vector<std::string>& arguments, const Support::BeforeCall& beforeCall) const {
    std::vector<std::string> command = {"env", "-C", folder(), Support::program("krv-package-signature")};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return Support::runSupervised(command, {}, sandbox().path(), {}, beforeCall).process;
  }
};

TEST_F(DisturbedTool, LeavesThePackageAloneWhenTheSystemFails) {
  const std::string before = package();
  const struct {
    const char* call;
    int error;
    std::string message;
  } cases[] = {
      {"write", ENOSPC, "the new file cannot be written: No space left on device"},
      {"rename", EIO, "it cannot be replaced: Input/output error"},
  };
  for (const auto& [call, error, message] : cases) {
    expectResult(runTool(signing("alice", {"a.rpm"}), Support::failNth(call, 1, newFile, error)), 1, "",
                 tool + "a.rpm: " + message + "\n");
    EXPECT_TRUE(package() == before);
    EXPECT_EQ(names(), std::vector<std::string>{"a.rpm"});
  }
}

TEST_F(DisturbedTool, FinishesThePackageWhenItIsInterrupted) {
  std::filesystem::copy_file(folder() / "a.rpm", folder() / "b.rpm");
  const std::string before = package();
  const rlimit noCore{}; // SIGQUIT would leave a core file in the folder
  ASSERT_EQ(setrlimit(RLIMIT_CORE, &noCore), 0);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    const auto interrupt = [&](const Support::SeenCall& seen) { return kill(seen.process, signal); };
    for (const char* call : {"write", "rename"}) {
      SCOPED_TRACE(std::to_string(signal) + " at " + call);
      Support::writeFile(folder() / "a.rpm", before);
      const ProcessResult result =
          runTool(signing("alice", {"a.rpm", "b.rpm"}), Support::beforeNth(call, 1, newFile, interrupt));
      EXPECT_EQ(result.status, 128 + signal);
      EXPECT_EQ(verifyTool({"a.rpm"}).status, 0);
      EXPECT_TRUE(readFile(folder() / "b.rpm") == before);
      EXPECT_EQ(names(), (std::vector<std::string>{"a.rpm", "b.rpm"}));
    }
  }
}

/// Runs "sign" as alice and changes files after it has opened the package, when it reads a file of certificates.
class DisturbedSigning : public DisturbedTool {
protected:
  DisturbedSigning() {
    std::filesystem::copy(Pki::instance().certificate("ca"), chain);
    sandbox().build({.name = "victim"}, victim);
    victimBefore = readFile(victim);
  }

  /// Calls `change` at that moment.
  template <typename Change>
  ProcessResult sign(const std::string& path, Change change) const {
    bool isChanged = false;
    const auto changeOnce = [&](const Support::SeenCall&) {
      isChanged = true;
      change();
      return 0;
    };
    const ProcessResult result =
        runTool(signing("alice", {"--chain", chain, path}), Support::beforeNth("open", 1, chain, changeOnce));
    EXPECT_TRUE(isChanged);
    return result;
  }

  std::filesystem::path chain = sandbox().path() / "chain.pem";
  std::filesystem::path victim = sandbox().path() / "victim.rpm";
  std::string victimBefore;
};

TEST_F(DisturbedSigning, ReplacesTheOpenedPackageWhenASymlinkIsChanged) {
  std::filesystem::create_symlink("a.rpm", folder() / "link");
  const auto change = [&] {
    std::filesystem::remove(folder() / "link");
    std::filesystem::create_symlink(victim, folder() / "link");
  };
  expectResult(sign("link", change), 0, "", "");
  EXPECT_TRUE(readFile(victim) == victimBefore);
  expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", "");
}

TEST_F(DisturbedSigning, RefusesToReplaceASymlinkThatReplacedThePackage) {
  const std::string before = package();
  const auto change = [&] {
    std::filesystem::rename(folder() / "a.rpm", folder() / "b.rpm");
    std::filesystem::create_symlink(victim, folder() / "a.rpm");
  };
  expectResult(sign("a.rpm", change), 1, "", tool + "a.rpm: another file replaced it meanwhile\n");
  EXPECT_TRUE(readFile(victim) == victimBefore);
  EXPECT_TRUE(std::filesystem::is_symlink(folder() / "a.rpm"));
  EXPECT_TRUE(readFile(folder() / "b.rpm") == before);
  EXPECT_EQ(names(), (std::vector<std::string>{"a.rpm", "b.rpm"}));
}

TEST_F(DisturbedSigning, RefusesToReplaceAFileThatReplacedThePackage) {
  const auto change = [&] {
    std::filesystem::copy_file(victim, folder() / "new");
    std::filesystem::rename(folder() / "new", folder() / "a.rpm");
  };
  expectResult(sign("a.rpm", change), 1, "", tool + "a.rpm: another file replaced it meanwhile\n");
  EXPECT_TRUE(package() == victimBefore);
  EXPECT_EQ(names(), std::vector<std::string>{"a.rpm"});
}

TEST_F(DisturbedSigning, StaysInTheOpenedDirectory) {
  const std::filesystem::path moved = sandbox().path() / "moved";
  const auto change = [&] {
    std::filesystem::rename(folder(), moved);
    std::filesystem::create_directory(folder());
    std::filesystem::copy_file(victim, folder() / "a.rpm");
  };
  expectResult(sign(folder() / "a.rpm", change), 0, "", "");
  EXPECT_TRUE(package() == victimBefore);
  expectResult(verifyTool({moved / "a.rpm"}), 0, (moved / "a.rpm").string() + ": OK\n", "");
}

// Otherwise it could show the signatures of one file with the offsets of another. The file is looked up with O_PATH and
// then opened: two calls.
TEST_F(DisturbedTool, OpensThePackageThatItShowsOnce) {
  const ProcessResult shown = Support::run({Support::program("krv-package-signature"), "show", "a.rpm"}, {}, folder());
  ASSERT_EQ(shown.status, 0);
  expectResult(runTool({"show", "a.rpm"}, Support::failNth("open", 3, "*/a.rpm", EIO)), 0, shown.output, "");
}

TEST_F(DisturbedTool, DoesNotBlockAtAFifoThatReplacedThePackage) {
  const auto replace = [this](const Support::SeenCall&) {
    std::filesystem::remove(folder() / "a.rpm");
    Support::makeFifo(folder() / "a.rpm");
    return 0;
  };
  expectResult(runTool({"show", "a.rpm"}, Support::beforeNth("open", 1, "*/a.rpm", replace)), 1, "",
               tool + "a.rpm: it is not a regular file\n");
}

TEST_F(DisturbedTool, ReadsThePackageThatItFoundIfAFifoReplacesIt) {
  signAs("alice", {"a.rpm"});
  const auto replace = [this](const Support::SeenCall&) {
    std::filesystem::remove(folder() / "a.rpm");
    Support::makeFifo(folder() / "a.rpm");
    return 0;
  };
  const std::string authorities = Pki::instance().trustedCa();
  expectResult(
      runTool({"verify", "--ca-path", authorities, "a.rpm"}, Support::beforeNth("open", 2, "*/a.rpm", replace)), 0,
      "a.rpm: OK\n", "");
}

TEST_F(DisturbedTool, DoesNotBlockAtAFifoWithoutProc) {
  const auto replace = [this](const Support::SeenCall&) {
    std::filesystem::remove(folder() / "a.rpm");
    Support::makeFifo(folder() / "a.rpm");
    return ENOENT;
  };
  expectResult(runTool({"show", "a.rpm"}, Support::beforeNth("open", 2, "*/a.rpm", replace)), 1, "",
               tool + "a.rpm: it is not a regular file\n");
}

// The package is opened by name first, then through its descriptor.
TEST_F(DisturbedTool, WorksWithoutProc) {
  EXPECT_EQ(runTool(signing("alice", {"a.rpm"}), Support::failNth("open", 2, "*/a.rpm", ENOENT)).status, 0);
  expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", "");
}

TEST_F(PackageSignatureTool, ReportsAnOutputThatCannotBeWritten) {
  const ProcessResult result = Support::run(
      {"bash", "-c", "exec \"$0\" show a.rpm >/dev/full", Support::program("krv-package-signature")}, {}, folder());
  expectResult(result, 1, "", tool + "standard output cannot be written\n");
}

TEST_F(PackageSignatureTool, PrintsItsHelp) {
  const ProcessResult help = runTool({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.errors, "");
  EXPECT_EQ(help.output.substr(0, help.output.find('\n')),
            "Sign the packages of a system image, show their signatures and verify them.");
  for (const char* command : {"sign", "show", "verify"}) {
    const ProcessResult ofCommand = runTool({command, "--help"});
    EXPECT_EQ(ofCommand.status, 0);
    EXPECT_EQ(ofCommand.errors, "");
    EXPECT_NE(ofCommand.output.find(std::string("krv-package-signature ") + command + " [OPTIONS] PACKAGE"),
              std::string::npos)
        << ofCommand.output;
  }
}

TEST_F(PackageSignatureTool, PrintsItsVersion) {
  expectResult(runTool({"--version"}), 0, "krv-package-signature " KRV_VERSION "\n", "");
}

TEST_F(PackageSignatureTool, RefusesWrongUsage) {
  const struct {
    std::vector<std::string> arguments;
    std::string message; ///< the text is CLI11's, the same since version 2.1
  } cases[] = {
      {{}, "A subcommand is required"},
      {{"list"}, "A subcommand is required"},
      {{"a.rpm"}, "A subcommand is required"},
      {{"show"}, "PACKAGE is required"},
      {{"verify", "--ca-path", "x"}, "PACKAGE is required"},
      {{"sign", "a.rpm"}, "--key is required"},
      {{"sign", "--key", "k", "a.rpm"}, "--cert is required"},
      {{"sign", "--key", "k", "--cert", "c"}, "PACKAGE is required"},
      {{"sign", "--key", "k", "--cert", "c", "--previous", "k2", "a.rpm"}, "--previous: expected KEY,CERT, not k2"},
      {{"sign", "--key", "k", "--cert", "c", "--previous", "a,b,c", "a.rpm"},
       "--previous: expected KEY,CERT, not a,b,c"},
      {{"show", "--color", "a.rpm"}, "The following argument was not expected: --color"},
      {{"show", "--ca-path", "x", "a.rpm"}, "The following argument was not expected: --ca-path"},
      {{"show", "-x", "a.rpm"}, "The following argument was not expected: -x"},
      {{"show", "--js", "a.rpm"}, "The following argument was not expected: --js"},
      {{"verify", "a.rpm", "--ca-path"}, "--ca-path: 1 required DIR missing"},
  };
  const std::string before = package();
  for (const auto& [arguments, message] : cases)
    expectResult(runTool(arguments), 2, "", tool + message + "\nTry: krv-package-signature --help\n");
  EXPECT_TRUE(package() == before);
}

} // namespace
