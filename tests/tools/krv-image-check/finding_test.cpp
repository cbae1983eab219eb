// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/files/special_files.h"
#include "tests/support/packages/open_pgp_key.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/signing/pki.h"
#include "tests/tools/krv-image-check/test_image.h"

#include <gtest/gtest.h>
#include <rpmsign-external/signing.h>

#include <algorithm>
#include <functional>
#include <set>
#include <sstream>

#include <elf.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using ImageCheckTest::flipByte;
using ImageCheckTest::Lines;
using ImageCheckTest::TestImage;
using ImageCheckTest::writeProgram;
using Support::Pki;
using Support::writeFile;

/// The smallest mistake with one finding, which is found and nothing else.
struct Mistake {
  std::string id;
  std::string line;
  std::function<void(TestImage&)> make;
  std::vector<std::string> options = {};
  bool needsRoot = false;

  friend void PrintTo(const Mistake& mistake, std::ostream* output) { *output << mistake.id; }
};

void changePackage(const fs::path& package, const std::function<void(Header)>& change) {
  Support::changeHeader(package, change);
  Support::sealHeader(package);
  Support::sign(package, "alice");
}

void putCms(const fs::path& package, const std::vector<std::string>& signers) {
  std::string container;
  for (const std::string& name : signers)
    container += PackageSignatures::makeCms(package, Pki::instance().signer(name));
  PackageSignatures::replaceContainer(package, container);
}

void makeImageLessOf(const TestImage& image, const char* path) {
  fs::remove_all(image / path);
}

std::vector<Mistake> mistakesOfTheImage() {
  return {
      {"directory-missing",
       "image: error: directory-missing: the image has no directory usr/share/krv/pre-install-apps",
       [](TestImage& image) { makeImageLessOf(image, TestImage::directory); }},
      {"directory-empty", "image: note: directory-empty: usr/share/krv/pre-install-apps has no entries",
       [](TestImage& image) { fs::remove(image.entry("notes.rpm")); }},
      {"directory-writable-by-others",
       "image: error: directory-writable-by-others: users other than root may write usr/share/krv",
       [](TestImage& image) { fs::permissions(image / "usr/share/krv", static_cast<fs::perms>(0777)); }},
      {"tool-missing", "image: warning: tool-missing: the image has no program krv-pre-installer",
       [](TestImage& image) { fs::rename(image / "usr/sbin/krv-pre-installer", image / "usr/sbin/init"); }},
      {"tool-not-enabled",
       "image: warning: tool-not-enabled: no unit wants krv-pre-installer.service, and the image has a machine id, so "
       "presets are not applied at its first boot",
       [](TestImage& image) {
         makeImageLessOf(image, "etc/systemd/system/multi-user.target.wants");
         writeFile(image / "etc/machine-id", "");
       }},
      {"service-not-activatable",
       "image: warning: service-not-activatable: no file in usr/share/dbus-1/system-services lets the bus start "
       "velta.KRV",
       [](TestImage& image) { makeImageLessOf(image, "usr/share/dbus-1/system-services"); }},
      {"bus-policy-missing",
       "image: warning: bus-policy-missing: no file in usr/share/dbus-1/system.d or etc/dbus-1/system.d names "
       "velta.KRV",
       [](TestImage& image) { makeImageLessOf(image, "usr/share/dbus-1/system.d"); }},
      {"authorities-missing", "image: error: authorities-missing: there is no certificate in etc/krv/trusted-ca",
       [](TestImage& image) { makeImageLessOf(image, "etc/krv"); }},
      {"authorities-unhashed", "image: error: authorities-unhashed: no hashed name leads to the certificate second.pem",
       [](TestImage& image) {
         fs::copy_file(Pki::instance().certificate("foreign-ca"), image / "etc/krv/trusted-ca/second.pem");
       }},
  };
}

std::vector<Mistake> mistakesOfEntries() {
  return {
      {"entry-dangling-link", "link.rpm: error: entry-dangling-link: its target missing.rpm does not exist",
       [](TestImage& image) { fs::create_symlink("missing.rpm", image.entry("link.rpm")); }},
      {"entry-link-leaves-image",
       "link.rpm: error: entry-link-leaves-image: its target ../../../../../outside.rpm is not in the image",
       [](TestImage& image) {
         fs::copy_file(image.entry("notes.rpm"), image.outside() / "outside.rpm");
         fs::create_symlink("../../../../../outside.rpm", image.entry("link.rpm"));
       }},
      {"entry-not-a-file", "fifo: error: entry-not-a-file: the entry is a FIFO",
       [](TestImage& image) { Support::makeFifo(image.entry("fifo")); }},
      {"entry-not-a-package", ".gitkeep: error: entry-not-a-package: the file does not begin like an RPM package",
       [](TestImage& image) { writeFile(image.entry(".gitkeep"), ""); }},
      {"entry-unreadable", "notes.rpm: error: entry-unreadable: it has mode 0000",
       [](TestImage& image) { fs::permissions(image.entry("notes.rpm"), fs::perms::none); }},
      {"entry-writable-by-others", "notes.rpm: error: entry-writable-by-others: it has mode 0666",
       [](TestImage& image) { fs::permissions(image.entry("notes.rpm"), static_cast<fs::perms>(0666)); }},
      {"entry-owner",
       "notes.rpm: warning: entry-owner: it belongs to user 65534",
       [](TestImage& image) { ASSERT_EQ(chown(image.entry("notes.rpm").c_str(), 65534, 0), 0); },
       {},
       true},
      {"entry-name-unprintable",
       "a\\x1b[31m\\xff\\x0a.rpm: warning: entry-name-unprintable: its name is a\\x1b[31m\\xff\\x0a.rpm",
       [](TestImage& image) { fs::rename(image.entry("notes.rpm"), image.entry("a\033[31m\xff\n.rpm")); }},
      {"package-in-subfolder", "more/notes.rpm: warning: package-in-subfolder: the package lies in the subfolder more",
       [](TestImage& image) {
         fs::create_directory(image.entry("more"));
         fs::copy_file(image.entry("notes.rpm"), image.entry("more/notes.rpm"));
       }},
  };
}

std::vector<Mistake> mistakesOfPackages() {
  return {
      {"header-damaged", "notes.rpm: error: header-damaged: RPM cannot read the headers of the package",
       [](TestImage& image) { fs::resize_file(image.entry("notes.rpm"), 500); }},
      {"payload-damaged",
       "maps.rpm: error: payload-damaged: the payload cannot be unpacked, or a file does not have its digest",
       [](TestImage& image) {
         const fs::path package = image.add({.name = "maps"}, "");
         flipByte(package, 10);
         Support::sign(package, "alice");
       },
       {"--deep"}},
      {"payload-compressor-unknown", "notes.rpm: error: payload-compressor-unknown: the payload is compressed with lz4",
       [](TestImage& image) {
         changePackage(image.entry("notes.rpm"), [](Header header) {
           headerDel(header, RPMTAG_PAYLOADCOMPRESSOR);
           headerPutString(header, RPMTAG_PAYLOADCOMPRESSOR, "lz4");
         });
       }},
      {"source-package", "maps.rpm: error: source-package: the file is a source package",
       [](TestImage& image) { image.add({.name = "maps", .isSource = true}); }},
      {"identity-missing", "notes.rpm: error: identity-missing: the package has no usable version",
       [](TestImage& image) {
         changePackage(image.entry("notes.rpm"), [](Header header) { headerDel(header, RPMTAG_VERSION); });
       }},
      {"architecture-foreign",
       "maps.rpm: error: architecture-foreign: The package is for another architecture: aarch64",
       [](TestImage& image) {
         image.add({.name = "maps", .architecture = "", .arguments = {"--target", "aarch64"}});
       }},
      {"version-unparsable",
       "notes.rpm: error: version-unparsable: RPM cannot compare the version " + std::string(200, '1'),
       [](TestImage& image) {
         changePackage(image.entry("notes.rpm"), [](Header header) {
           headerDel(header, RPMTAG_VERSION);
           headerPutString(header, RPMTAG_VERSION, std::string(1100000, '1').c_str());
         });
       }},
      {"epoch-ignored", "maps.rpm: warning: epoch-ignored: the version is 3:1.0-1",
       [](TestImage& image) { image.add({.name = "maps", .preamble = "Epoch: 3"}); }},
      {"openpgp-key-missing",
       "maps.rpm: error: openpgp-key-missing: the package has an OpenPGP signature of a key that the image does not "
       "trust",
       [](TestImage& image) {
         const Support::OpenPgpKey key(image.rpm());
         key.sign(image.add({.name = "maps"}));
       }},
      {"path-reserved",
       "maps.rpm: error: path-reserved: The package has a file in a folder that is not for packages: /etc/krv/maps",
       [](TestImage& image) {
         image.add({.name = "maps",
                    .install = "mkdir -p %{buildroot}/etc/krv; touch %{buildroot}/etc/krv/maps",
                    .files = "/etc/krv/maps"});
       }},
      {"privileged-file", "maps.rpm: warning: privileged-file: set-user-ID: /opt/maps/file",
       [](TestImage& image) { image.add({.name = "maps", .files = "%attr(4755, root, root) /opt/maps/file"}); }},
      {"scriptlet-present", "maps.rpm: note: scriptlet-present: the package has scriptlets or triggers",
       [](TestImage& image) { image.add({.name = "maps", .sections = "%post -p <lua>\nprint('x')"}); }},
      {"scriptlet-interpreter-missing",
       "maps.rpm: error: scriptlet-interpreter-missing: a scriptlet needs /opt/bin/interpreter",
       [](TestImage& image) {
         image.add({.name = "maps", .sections = "%post -p /opt/bin/interpreter\nx"});
         makeImageLessOf(image, "var/lib/rpm"); // RPM also makes it a dependency
       }},
  };
}

std::vector<Mistake> mistakesOfSignatures() {
  const std::vector<std::string> anyMargin = {"--expiry-margin", "0"};
  return {
      {"unsigned", "maps.rpm: error: unsigned: the package has no signature",
       [](TestImage& image) { image.add({.name = "maps"}, ""); }},
      {"signature-unreadable", "notes.rpm: error: signature-unreadable: the signatures cannot be read",
       [](TestImage& image) { PackageSignatures::replaceContainer(image.entry("notes.rpm"), "nothing"); }},
      {"signature-broken",
       "notes.rpm: error: signature-broken: the developer (CN=Alice): the signature does not fit the content",
       [](TestImage& image) { flipByte(image.entry("notes.rpm"), 10); }},
      {"signer-untrusted",
       "maps.rpm: error: signer-untrusted: the developer (CN=Foreign developer): no trusted authority stands behind "
       "the issuer "
       "CN=Foreign authority",
       [](TestImage& image) { image.add({.name = "maps"}, "foreign"); }},
      {"signer-revoked",
       "maps.rpm: error: signer-revoked: the developer (CN=bob): the certificate, or one above it, is on a revocation "
       "list",
       [](TestImage& image) {
         image.authority().certify("bob");
         image.authority().revoke("bob");
         image.authority().publishList("root");
         image.trustAuthority();
         image.addSignedBy("bob", {.name = "maps"});
       },
       anyMargin},
      {"signer-expired",
       "maps.rpm: error: signer-expired: the developer (CN=Expired developer): the certificate, or one above it, ended "
       "before "
       "2027-01-01 (its own end: 2001-01-01)",
       [](TestImage& image) { image.add({.name = "maps"}, "expired"); },
       {"--at", "2027-01-01"}},
      {"signer-not-yet-valid",
       "maps.rpm: error: signer-not-yet-valid: the developer (CN=future): the certificate, or one above it, begins "
       "after 2027-01-01 (its own begin: 2040-01-01)",
       [](TestImage& image) {
         image.authority().certifyBetween("lasting", "20200101000000Z", "20600101000000Z", "authority", "");
         image.authority().trust("lasting");
         image.authority().certifyBetween("future", "20400101000000Z", "20500101000000Z", "developer", "lasting");
         image.trustAuthority();
         image.addSignedBy("future", {.name = "maps"});
       },
       {"--at", "2027-01-01"}},
      {"signer-expires-soon",
       "maps.rpm: warning: signer-expires-soon: the developer (CN=short): the certificate ends on 2027-02-01, in 31 "
       "days",
       [](TestImage& image) {
         image.authority().certifyBetween("lasting", "20200101000000Z", "20600101000000Z", "authority", "");
         image.authority().trust("lasting");
         image.authority().certifyBetween("short", "20200101000000Z", "20270201000000Z", "developer", "lasting");
         image.trustAuthority();
         image.addSignedBy("short", {.name = "maps"});
       },
       {"--at", "2027-01-01"}},
      {"authority-expires-soon",
       "maps.rpm: warning: authority-expires-soon: the developer (CN=long): an authority above it ends on 2027-02-01, "
       "in 31 days",
       [](TestImage& image) {
         image.authority().certifyBetween("ending", "20200101000000Z", "20270201000000Z", "authority", "");
         image.authority().trust("ending");
         image.authority().certifyBetween("long", "20200101000000Z", "20500101000000Z", "developer", "ending");
         image.trustAuthority();
         image.addSignedBy("long", {.name = "maps"});
       },
       {"--at", "2027-01-01"}},
      {"role-missing", "maps.rpm: error: role-missing: a source has signed the package, but no developer",
       [](TestImage& image) { image.add({.name = "maps"}, "source"); }},
      {"role-twice", "notes.rpm: error: role-twice: two signatures have the same role",
       [](TestImage& image) {
         putCms(image.entry("notes.rpm"), {"alice", "bob"});
       }},
      {"key-weak",
       "maps.rpm: error: key-weak: the developer (CN=weak): a key or a digest in its chain has less than 112 bits of "
       "security",
       [](TestImage& image) {
         image.authority().certify("weak", {.key = "rsa:1024"});
         image.trustAuthority();
         image.addSignedBy("weak", {.name = "maps"});
       },
       anyMargin},
      {"rotation-broken",
       "maps.rpm: error: rotation-broken: the developer (CN=Alice): an earlier key does not vouch for the next one",
       [](TestImage& image) { image.add({.name = "maps"}, "alice-2", {"foreign"}); }},
  };
}

std::vector<Mistake> mistakesOfSeveralPackages() {
  return {
      {"dependency-missing", "maps.rpm: error: dependency-missing: nothing provides library >= 2",
       [](TestImage& image) {
         image.install({.name = "library", .version = "1"});
         image.add({.name = "maps", .preamble = "Requires: library >= 2"});
       }},
      {"dependency-order", "maps.rpm: warning: dependency-order: only another package of the directory provides notes",
       [](TestImage& image) { image.add({.name = "maps", .preamble = "Requires: notes"}); }},
      {"conflict-declared", "maps.rpm: error: conflict-declared: it conflicts with notes",
       [](TestImage& image) { image.add({.name = "maps", .preamble = "Conflicts: notes"}); }},
      {"file-conflict",
       "notes.rpm: error: file-conflict: Another package has a different file at the path: /opt/notes/file",
       [](TestImage& image) {
         image.add({.name = "maps",
                    .install = "mkdir -p %{buildroot}/opt/notes; echo other > %{buildroot}/opt/notes/file",
                    .files = "/opt/notes/file"});
       }},
      {"space-exceeded",
       "image: error: space-exceeded: the files of all packages need 8 bytes, and 7 are free",
       [](TestImage&) {},
       {"--space", "7"}},
  };
}

std::vector<Mistake> mistakesOfWaivers() {
  const auto writeWaiver = [](const std::string& line) {
    return [line](TestImage& image) { writeFile(image.outside() / "waivers", line + "\n"); };
  };
  const std::vector<std::string> options = {"--waivers", "waivers", "--at", "2027-01-01"};
  return {
      {"waiver-unused", "image: warning: waiver-unused: line 1 (epoch-ignored *.rpm): it matches no finding",
       writeWaiver("epoch-ignored *.rpm until=2027-01-01 reason=we know"), options},
      {"waiver-expired", "image: warning: waiver-expired: line 1 (epoch-ignored *.rpm): it ended on 2026-12-31",
       writeWaiver("epoch-ignored *.rpm until=2026-12-31 reason=we know"), options},
      {"waiver-refused", "image: error: waiver-refused: line 1 (unsigned *): this finding cannot be waived",
       writeWaiver("unsigned * until=2027-01-01 reason=we know"), options},
      {"check-skipped",
       "notes.rpm: note: check-skipped: this process cannot open it: Permission denied",
       [](TestImage& image) {
         fs::permissions(image.entry("notes.rpm"), static_cast<fs::perms>(0600));
         fs::permissions(image.outside(), static_cast<fs::perms>(0755));
       },
       {},
       true},
  };
}

/// Puts another package into the place of the one that the earlier image "old" has.
std::function<void(TestImage&)> replaceNotes(const std::string& version, const std::string& signer,
                                             const std::vector<std::string>& previous = {}) {
  return [=](TestImage& image) {
    image.copy("old");
    image.add({.name = "notes", .version = version}, signer, previous);
  };
}

std::vector<Mistake> mistakesAboutThePast() {
  const std::vector<std::string> old = {"--previous", "old"};
  return {
      {"duplicate-name",
       "notes-2.rpm: error: duplicate-name: these entries are packages with the name notes: notes-2.rpm, notes.rpm. A "
       "device ends with notes 2.0-1, whichever comes first (first-boot).",
       [](TestImage& image) {
         fs::rename(image.entry("notes.rpm"), image.outside() / "notes-1.rpm");
         fs::rename(image.add({.name = "notes", .version = "2.0"}), image.entry("notes-2.rpm"));
         fs::rename(image.outside() / "notes-1.rpm", image.entry("notes.rpm"));
       }},
      {"downgrade", "notes.rpm: error: downgrade: the device has 1.0-1, the image has 0.9-1 (update:old)",
       replaceNotes("0.9", "alice"), old},
      {"rebuilt-same-version",
       "notes.rpm: error: rebuilt-same-version: the earlier image has other bytes as notes 1.0-1 (update:old)",
       [](TestImage& image) {
         image.copy("old");
         image.add({.name = "notes", .preamble = "URL: https://example.org"});
       },
       old},
      {"developer-changed",
       "notes.rpm: error: developer-changed: the device has a package signed with the key {alice}, this one is signed "
       "with {bob} (update:old)",
       replaceNotes("2.0", "bob"), old},
      {"rotation-shortened",
       "notes.rpm: error: rotation-shortened: the device has a package signed with the key {alice}, which is not among "
       "the earlier keys of this one (update:old)",
       replaceNotes("2.0", "alice-3", {"alice-2"}), old},
      {"package-dropped",
       "image: warning: package-dropped: devices have maps 1.0-1, and the image has no package of that name",
       [](TestImage& image) {
         const fs::path maps = image.add({.name = "maps"});
         image.copy("old");
         fs::remove(maps);
       },
       old},
      {"removed-returns",
       "notes.rpm: warning: removed-returns: the user removed a package that was signed with the key {alice}, this one "
       "is signed with {alice-2} (update:old)",
       replaceNotes("2.0", "alice-2", {"alice"}),
       {"--previous", "old", "--removed", "notes"}},
  };
}

/// The line with "{NAME}" replaced by what the findings show of the key of NAME.
std::string withKeys(std::string line) {
  for (const char* name : {"alice-2", "alice", "bob"}) {
    const std::string mark = std::string("{") + name + "}";
    if (const std::size_t place = line.find(mark); place != std::string::npos)
      line.replace(place, mark.size(), Pki::instance().keyId(name).substr(0, 16));
  }
  return line;
}

std::vector<Mistake> allMistakes() {
  std::vector<Mistake> all;
  for (const auto& group : {mistakesOfTheImage(), mistakesOfEntries(), mistakesOfPackages(), mistakesOfSignatures(),
                            mistakesOfSeveralPackages(), mistakesAboutThePast(), mistakesOfWaivers()})
    all.insert(all.end(), group.begin(), group.end());
  return all;
}

class EachFinding : public testing::TestWithParam<Mistake> {};

TEST_P(EachFinding, IsFoundAlone) {
  const Mistake& mistake = GetParam();
  if (mistake.needsRoot && geteuid() != 0)
    GTEST_SKIP() << "needs another user's file";
#if defined(__SANITIZE_ADDRESS__)
  if (mistake.id == "check-skipped")
    GTEST_SKIP() << "the sanitizer cannot read its options in a process that has changed its user";
#endif
  TestImage image;
  mistake.make(image);
  const Support::TempDirectory ownFolder;
  const std::unique_ptr<Support::OrdinaryUser> user =
      mistake.id == "check-skipped" ? std::make_unique<Support::OrdinaryUser>(ownFolder.path()) : nullptr;
  EXPECT_EQ(image.findings(mistake.options), Lines{withKeys(mistake.line)});
}

std::string nameOf(const testing::TestParamInfo<Mistake>& info) {
  std::string name = info.param.id;
  std::erase(name, '-');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Catalogue, EachFinding, testing::ValuesIn(allMistakes()), nameOf);

TEST(Finding, HasATest) {
  std::set<std::string> tested;
  for (const Mistake& mistake : allMistakes())
    tested.insert(mistake.id);
  std::set<std::string> explained;
  std::istringstream lines(Support::runOrThrow({Support::program("krv-image-check"), "--explain", "all"}));
  for (std::string line; std::getline(lines, line);)
    if (!line.empty() && !line.starts_with(' '))
      explained.insert(line.substr(0, line.find(' ')));
  EXPECT_EQ(explained, tested);
}

TEST(Finding, IsNotInAGoodImage) {
  const TestImage image;
  EXPECT_EQ(image.findings({"--deep", "--space", "8"}), Lines());
}

} // namespace
