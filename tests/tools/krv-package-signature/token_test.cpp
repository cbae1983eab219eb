// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-package-signature/tokens.h"
#include "tests/tools/krv-package-signature/tool_fixture.h"

namespace {

using Support::Environment;
using Support::Pki;
using Support::ProcessResult;

/// Signs with a key in a token of SoftHSM.
class Token : public PackageSignatureTool {
protected:
  void SetUp() override {
    if (const std::string missing = missingForTokens(); !missing.empty())
      GTEST_SKIP() << missing;
    m_environment = environmentForTokens(sandbox().path());
    Support::runOrThrow(
        {"softhsm2-util", "--init-token", "--free", "--label", "krv", "--so-pin", "87654321", "--pin", "1234567"},
        m_environment);
    int id = 0;
    for (const std::string name : {"alice", "alice-2"})
      Support::runOrThrow({"softhsm2-util", "--import", Pki::instance().key(name), "--token", "krv", "--label", name,
                           "--id", "0" + std::to_string(++id), "--pin", "1234567"},
                          m_environment);
    Support::writeFile(pins(), "1234567\n1234567\n");
  }

  const Environment& environment() const { return m_environment; }
  std::string pins() const { return sandbox().path() / "pins"; }

  static std::string uri(const std::string& name) { return "pkcs11:token=krv;object=" + name + ";type=private"; }

  /// Why a key cannot be loaded although a PIN was given.
  const std::string problem = " cannot be loaded: no token has such a private key, or the PIN is wrong\n";

  ProcessResult sign(const std::string& key, const std::vector<std::string>& rest) const {
    std::vector<std::string> arguments = {"sign", "a.rpm",  "--key",
                                          key,    "--cert", Pki::instance().certificate("alice-2")};
    arguments.insert(arguments.end(), rest.begin(), rest.end());
    return runTool(arguments, m_environment);
  }

private:
  Environment m_environment;
};

TEST_F(Token, SignsPackages) {
  expectResult(sign(uri("alice-2"), {"--passphrase-file", pins()}), 0, "", "");
  expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", "");
}

TEST_F(Token, SignsWithAnEarlierKey) {
  expectResult(sign(uri("alice-2"), {"--passphrase-file", pins(), "--previous",
                                     uri("alice") + "," + Pki::instance().certificate("alice").string()}),
               0, "", "");
  expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", "");
  const ProcessResult shown = runTool({"show", "a.rpm"});
  EXPECT_NE(shown.output.find("\n    previous key id: " + Pki::instance().keyId("alice") + "\n"), std::string::npos)
      << shown.output;
}

TEST_F(Token, SignsForAnEarlierKeyInAFile) {
  expectResult(sign(uri("alice-2"), {"--passphrase-file", pins(), "--previous", previous("alice")}), 0, "", "");
  expectResult(signAs("alice-3",
                      {"--passphrase-file", pins(), "--previous",
                       uri("alice-2") + "," + Pki::instance().certificate("alice-2").string(), "a.rpm"},
                      environment()),
               0, "", "");
  expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", "");
}

TEST_F(Token, AsksForThePinOnTheTerminal) {
  Terminal terminal;
  Support::Process process({Support::program("krv-package-signature"), "sign", "--key", uri("alice-2"), "--cert",
                            Pki::instance().certificate("alice-2"), "a.rpm"},
                           environment(), folder(), [&] { terminal.control(); });
  terminal.answer("PIN of " + uri("alice-2") + ": ", "1234567");
  expectResult(process.wait(), 0, "", "");
  EXPECT_EQ(terminal.text(), "\r\n");
  expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", "");
}

TEST_F(Token, RefusesAWrongPin) {
  const std::string before = package();
  Support::writeFile(pins(), "7654321\n");
  expectResult(sign(uri("alice-2"), {"--passphrase-file", pins()}), 1, "", tool + uri("alice-2") + problem);
  EXPECT_TRUE(package() == before);
}

TEST_F(Token, RefusesAKeyThatIsMissing) {
  expectResult(sign(uri("nobody"), {"--passphrase-file", pins()}), 1, "", tool + uri("nobody") + problem);
}

TEST_F(Token, NeedsAPin) {
  Support::writeFile(pins(), "");
  expectResult(sign(uri("alice-2"), {"--passphrase-file", pins()}), 1, "",
               tool + uri("alice-2") + " needs a PIN, and the file of pass phrases has no usable line for it\n");
}

TEST_F(Token, RefusesAKeyOfAnotherCertificate) {
  expectResult(sign(uri("alice"), {"--passphrase-file", pins()}), 1, "",
               tool + "the key " + uri("alice") + " does not belong to the certificate " +
                   Pki::instance().certificate("alice-2").string() + "\n");
}

TEST_F(PackageSignatureTool, RefusesAPinInAUri) {
  expectResult(runTool({"sign", "--key", "pkcs11:object=alice?pin-value=1234567", "--cert",
                        Pki::instance().certificate("alice"), "a.rpm"}),
               1, "", tool + "the URI of the key contains a PIN, which other users can see\n");
}

TEST_F(PackageSignatureTool, ReportsAMissingProviderForTokens) {
  std::filesystem::create_directory(folder() / "empty");
  expectResult(
      runTool({"sign", "--key", "pkcs11:object=alice", "--cert", Pki::instance().certificate("alice"), "a.rpm"},
              {{"OPENSSL_MODULES", folder() / "empty"}, {"OPENSSL_CONF", "/dev/null"}}),
      1, "", tool + "pkcs11:object=alice cannot be used: OpenSSL has no provider \"pkcs11\"\n");
}

} // namespace
