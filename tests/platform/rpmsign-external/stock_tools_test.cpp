// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/process/process.h"

namespace {

/// The commands of docs/signature-format.md.
std::string documentedCommands() {
  const std::string text = Support::readFile(KRV_SOURCE_DIRECTORY "/docs/signature-format.md");
  const std::string_view start = "```bash\n";
  const std::size_t begin = text.find(start) + start.size();
  return "set -e\n" + text.substr(begin, text.find("```\n", begin) - begin);
}

class StockTools : public PackageTest {
protected:
  Support::ProcessResult verifyWithStockTools() const {
    return Support::run({"bash", "-c", documentedCommands()},
                        {{"package", package()}, {"authorities", pki().trustedCa()}}, sandbox().path());
  }
};

TEST_F(StockTools, VerifyASignedPackage) {
  for (const char* name : {"alice", "source", "roleless"}) {
    PackageSignatures::replaceContainer(package(), opensslCms({"SIGNER:" + std::string(name)}));
    EXPECT_EQ(verifyWithStockTools().status, 0) << name;
  }
  Support::sign(package(), "alice-3", {"alice", "alice-2"});
  const Support::ProcessResult result = verifyWithStockTools();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "CAdES Verification successful\n");
}

TEST_F(StockTools, RefuseAChangedPackage) {
  Support::sign(package(), "alice");
  const std::string good = Support::readFile(package());
  Support::writeFile(package(), flipped(good, 8 * good.size() - 1));
  EXPECT_EQ(verifyWithStockTools().status, 4);
  Support::writeFile(package(), replaced(good, "Alice", "alice"));
  EXPECT_EQ(verifyWithStockTools().status, 4);
}

TEST_F(StockTools, RefuseAMessageThatDoesNotNameItsCertificate) {
  PackageSignatures::replaceContainer(package(), opensslCms({"SIGNER:alice", "UNBOUND"}));
  EXPECT_EQ(verifyWithStockTools().status, 4);
}

TEST_F(StockTools, RefuseContentThatIsNotAHeader) {
  const auto content = static_cast<std::size_t>(PackageSignatures::packageLayout(package()).contentOffset);
  Support::writeFile(inSandbox("content"), "text");
  Support::writeFile(package(), Support::readFile(package()).substr(0, content) + "text");
  PackageSignatures::replaceContainer(package(), opensslCms({"SIGNER:alice"}));
  EXPECT_EQ(verifyWithStockTools().status, 1);
}

TEST_F(StockTools, RefuseAForeignAuthorityAndAnExpiredSigner) {
  for (const char* name : {"foreign", "expired"}) {
    PackageSignatures::replaceContainer(package(), "");
    Support::sign(package(), name);
    EXPECT_EQ(verifyWithStockTools().status, 4) << name;
  }
}

} // namespace
