// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/faults/enumeration.h"
#include "tests/support/files/tree.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/signing/pki.h"

#include <gmock/gmock.h>
#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/signing.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Support::Pki;
using Support::readFile;

/// Bob signs a package that alice has signed.
class SigningFaults : public Enumeration {
protected:
  SigningFaults() {
    const Support::RpmSandbox rpm;
    rpm.build({}, package);
    Support::sign(package, "alice");
    before = readFile(package);
    fs::copy(Pki::instance().key("bob"), key);
    fs::copy(Pki::instance().certificate("bob"), certificate);
    prepare();
    propertiesBefore = properties();
  }

  /// Restores alice's package, with a mode, an owner and an attribute that differ from those of a new file.
  void prepare() const {
    for (const std::string& name : names())
      if (name.starts_with(".krv-package-"))
        fs::remove(folder / name);
    fs::remove(package);
    Support::writeFile(package, before);
    if (geteuid() == 0) {
      EXPECT_EQ(chown(package.c_str(), 1234, 1235), 0);
    }
    EXPECT_EQ(chmod(package.c_str(), 0604), 0);
    if (Support::keepsAttributes(folder.path()))
      Support::attach(package, "user.origin", "mine");
  }

  std::string properties() const {
    struct stat status {};
    EXPECT_EQ(stat(package.c_str(), &status), 0);
    char attribute[16];
    const ssize_t size = getxattr(package.c_str(), "user.origin", attribute, sizeof attribute);
    return std::to_string(status.st_mode) + " " + std::to_string(status.st_uid) + " " + std::to_string(status.st_gid) +
           " " + std::string(attribute, size < 0 ? 0 : static_cast<std::size_t>(size));
  }

  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(folder.path()))
      result.push_back(entry.path().filename());
    std::ranges::sort(result);
    return result;
  }

  /// Whether the package is still alice's; otherwise it must be bob's and complete.
  bool isOld() const {
    EXPECT_EQ(properties(), propertiesBefore);
    if (readFile(package) == before)
      return true;
    const auto file = PackageSignatures::FileWithCmses::fromPath(package);
    if (!file) {
      ADD_FAILURE() << "the package is neither the old nor the new one";
      return false;
    }
    EXPECT_TRUE(file->verifyCmses(Pki::instance().trustedCa().c_str()));
    EXPECT_EQ(file->cmses().size(), 1U);
    EXPECT_EQ(file->cmses().at(0).certificate()->keyId(), Pki::instance().keyId("bob"));
    return false;
  }

  fs::path package = folder / "sample.rpm";
  fs::path key = folder / "bob.key.pem";
  fs::path certificate = folder / "bob.pem";
  std::string before;
  std::string propertiesBefore;
};

TEST_F(SigningFaults, Sign) {
  const std::vector<std::string> ownNames = names();
  Operation signing;
  signing.command = {Support::program("krv-package-signature"), "sign", "--key", key, "--cert", certificate, package};
  signing.atLeast = {{"openat", 4}, {"write", 3}, {"fsync", 1}, {"renameat", 1}, {"fchmod", 1}, {"pread64", 4}};
  signing.prepare = [this] { prepare(); };
  // OpenSSL does not repeat an interrupted read of a PEM file; the tool then fails before it touches the package.
  signing.leaveOut = [this](const Support::SeenCall& call, int error) {
    return error == EINTR && call.name == "read" && call.path == certificate;
  };
  signing.checkUndisturbed = [&](const Support::ProcessResult& process) {
    EXPECT_EQ(process.status, 0);
    EXPECT_EQ(process.output + process.errors, "");
    EXPECT_FALSE(isOld());
    EXPECT_EQ(names(), ownNames);
  };
  signing.checkDisturbed = [&](const Disturbed& run) {
    const bool old = isOld();
    if (!run.wasKilled()) {
      EXPECT_EQ(names(), ownNames);
      EXPECT_EQ(run.process.status, old ? 1 : 0);
      EXPECT_EQ(run.process.output, "");
      EXPECT_THAT(run.process.errors, testing::MatchesRegex(old ? "krv-package-signature: [^\n]+\n" : ""));
      // The file may look complete although the data is not on disk. Only an interrupted write may be repeated.
      if (run.call.name == "fsync" || (run.call.name == "write" && run.error != 0 && run.error != EINTR)) {
        EXPECT_TRUE(old);
      }
    }
    // The temporary file of a killed tool does not disturb the next run.
    Support::sign(package, "bob");
    EXPECT_FALSE(isOld());
  };
  enumerate(signing);
}

TEST_F(SigningFaults, Verify) {
  Operation verifying;
  verifying.command = {Support::program("krv-package-signature"), "verify", "--ca-path", Pki::instance().trustedCa(),
                       package};
  verifying.atLeast = {{"openat", 2}, {"pread64", 3}, {"close", 1}};
  verifying.prepare = [] {};
  const std::string success = package.string() + ": OK\n";
  verifying.checkUndisturbed = [&](const Support::ProcessResult& process) {
    EXPECT_EQ(process.status, 0);
    EXPECT_EQ(process.output, success);
    EXPECT_EQ(process.errors, "");
  };
  verifying.checkDisturbed = [&](const Disturbed& run) {
    EXPECT_TRUE(isOld());
    if (run.wasKilled())
      return;
    const bool isGood = run.process.status == 0;
    EXPECT_EQ(run.process.output, isGood ? success : "");
    EXPECT_THAT(run.process.errors, testing::MatchesRegex(isGood ? "" : "krv-package-signature: [^\n]+\n"));
  };
  enumerate(verifying);
}

} // namespace
