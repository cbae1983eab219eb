// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/process/process.h"

namespace {

using PackageSignatures::replaceContainer;

std::string sequenceOfStrings(const std::vector<std::string>& strings) {
  std::string content;
  for (const std::string& string : strings)
    content += der('\x04', string);
  return der('\x30', content);
}

class Rotation : public PackageTest {
protected:
  using Chain = std::vector<std::string>;

  /// A link made with the openssl program, with any signer and any text.
  std::string link(const std::string& name, const std::string& text,
                   const std::vector<std::string>& options = {}) const {
    Support::writeFile(inSandbox("text"), text);
    std::vector<std::string> all = {"SIGNER:" + name, "-nodetach"};
    all.insert(all.end(), options.begin(), options.end());
    return opensslCms(all, "text");
  }

  /// A link in which `name` vouches for `next`.
  std::string linkTo(const std::string& name, const std::string& next) const {
    return link(name, "krv-key-rotation:" + pki().keyId(next));
  }

  /// Signs the package as `name`, with a valid signature and the rotation attributes `values`, each in DER.
  void signWithAttributes(const std::string& name, const Chain& values) const {
    replaceContainer(package(), cmsWithAttribute(name, {"2.25.157019916226857759528849042802738373896.3", values}));
  }

  void signWithChain(const std::string& name, const Chain& links) const {
    signWithAttributes(name, {sequenceOfStrings(links)});
  }

  Chain previous() const { return onlyCms().rotationChain().previousKeyids(); }
  Chain keyIds(const Chain& names) const {
    Chain result;
    for (const std::string& name : names)
      result.push_back(pki().keyId(name));
    return result;
  }
};

TEST_F(Rotation, GivesNoKeysWithoutARotation) {
  Support::sign(package(), "alice");
  EXPECT_EQ(previous(), Chain());
}

TEST_F(Rotation, GivesTheEarlierKeysOldestFirst) {
  Support::sign(package(), "alice-3", {"alice", "alice-2"});
  EXPECT_EQ(previous(), keyIds({"alice", "alice-2"}));
  EXPECT_TRUE(verifies());
}

TEST_F(Rotation, AcceptsLinksOfTheOpensslProgram) {
  signWithChain("alice-3", {linkTo("alice", "alice-2"), linkTo("alice-2", "alice-3")});
  EXPECT_EQ(previous(), keyIds({"alice", "alice-2"}));
  EXPECT_TRUE(verifies());
}

TEST_F(Rotation, AcceptsEarlierKeysThatHaveExpired) {
  Support::sign(package(), "alice-2", {"expired", "alice"});
  EXPECT_EQ(previous(), keyIds({"expired", "alice"}));
  EXPECT_TRUE(verifies());
}

TEST_F(Rotation, AcceptsAnEmptyChain) {
  signWithChain("alice", {});
  EXPECT_EQ(previous(), Chain());
  EXPECT_TRUE(verifies());
}

TEST_F(Rotation, AcceptsLongChains) {
  Support::sign(package(), "alice", Chain(50, "bob"));
  EXPECT_EQ(previous(), keyIds(Chain(50, "bob")));
  EXPECT_TRUE(verifies());
}

TEST_F(Rotation, RefusesAChainThatNamesAnotherKey) {
  const struct {
    const char* what;
    Chain links;
  } forgeries[] = {
      {"a link for somebody else", {linkTo("alice", "alice-2")}},
      {"a gap", {linkTo("alice", "alice-3"), linkTo("alice-2", "bob")}},
      {"the wrong order", {linkTo("alice-2", "bob"), linkTo("alice", "alice-2")}},
      {"another text", {link("alice", "krv-key-rotation " + pki().keyId("bob"))}},
      {"more text", {link("alice", "krv-key-rotation:" + pki().keyId("bob") + "\n")}},
      {"no text", {link("alice", "")}},
  };
  for (const auto& forgery : forgeries) {
    signWithChain("bob", forgery.links);
    EXPECT_EQ(previous().size(), forgery.links.size()) << forgery.what;
    EXPECT_FALSE(verifies()) << forgery.what;
  }
}

TEST_F(Rotation, RefusesLinksByOthersThanTrustedDevelopers) {
  for (const char* name : {"source", "both", "roleless", "foreign", "branch"}) {
    signWithChain("bob", {linkTo(name, "bob")});
    EXPECT_EQ(previous(), keyIds({name}));
    EXPECT_FALSE(verifies()) << name;
  }
}

TEST_F(Rotation, NeverTrustsAnAuthorityInALink) {
  signWithChain("bob", {link("foreign", "krv-key-rotation:" + pki().keyId("bob"),
                             {"-certfile", pki().certificate("foreign-ca")})});
  EXPECT_EQ(previous(), keyIds({"foreign"}));
  EXPECT_FALSE(verifies());
}

TEST_F(Rotation, RefusesALinkWithAnInvalidSignature) {
  // The text is replaced by the expected one; the signature is still for the old text.
  const std::string forged = replaced(linkTo("alice", "alice-2"), pki().keyId("alice-2"), pki().keyId("bob"));
  signWithChain("bob", {forged});
  EXPECT_EQ(previous(), keyIds({"alice"}));
  EXPECT_FALSE(verifies());
}

TEST_F(Rotation, RefusesALinkThatDoesNotSignItsCertificate) {
  const std::string text = "krv-key-rotation:" + pki().keyId("bob");
  signWithChain("bob", {link("alice", text, {"UNBOUND"})});
  EXPECT_EQ(previous(), keyIds({"alice"}));
  EXPECT_FALSE(verifies());
}

TEST_F(Rotation, RefusesAChainThatCannotBeRead) {
  const std::string good = linkTo("alice", "bob");
  const struct {
    const char* what;
    Chain attributes;
  } garbled[] = {
      {"no sequence", {der('\x04', "x")}},
      {"no strings", {der('\x30', der('\x02', "\x01"))}},
      {"strings that hold nothing", {sequenceOfStrings({""})}},
      {"strings that hold something else", {sequenceOfStrings({"no CMS"})}},
      {"a link with more behind it", {sequenceOfStrings({good + '\0'})}},
      {"a link that is cut", {sequenceOfStrings({good.substr(0, good.size() - 1)})}},
      {"a good link and a bad one", {sequenceOfStrings({good, "x"})}},
      {"a link without signed attributes",
       {sequenceOfStrings({link("alice", "krv-key-rotation:" + pki().keyId("bob"), {"UNBOUND", "-noattr"})})}},
      {"a link that is not in DER", {sequenceOfStrings({withLongerLength(good)})}},
      {"a link without its text", {sequenceOfStrings({PackageSignatures::makeCms(package(), pki().signer("alice"))})}},
      {"two values", {sequenceOfStrings({good}), sequenceOfStrings({good})}},
      {"no value", {}},
  };
  for (const auto& [what, attributes] : garbled) {
    signWithAttributes("bob", attributes);
    EXPECT_EQ(previous(), Chain()) << what;
    EXPECT_FALSE(verifies()) << what;
    EXPECT_EQ(onlyCms().certificate()->keyId(), pki().keyId("bob")) << what;
  }
}

TEST_F(Rotation, RefusesToSignWithAnEarlierKeyThatIsNotADevelopers) {
  EXPECT_THROW(Support::sign(package(), "alice", {"source"}), PackageSignatures::SigningError);
  EXPECT_EQ(PackageSignatures::packageLayout(package()).cmses.size(), 0U);
}

} // namespace
