// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/cms.h"
#include "tests/platform/rpmsign-external/largest_request.h"
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/files/special_files.h"
#include "tests/support/process/process.h"
#include "tests/support/process/wait.h"

#include <csignal>
#include <future>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace {

using PackageSignatures::Cms;
using PackageSignatures::FileWithCmses;
using PackageSignatures::replaceContainer;

constexpr std::size_t entryCountOffset = 104;
constexpr std::size_t dataSizeOffset = 108;
constexpr std::size_t firstEntryOffset = 112;
constexpr std::string_view containerTag{"\x4b\x52\x56\x43", 4};
constexpr std::size_t mostSignatures = 256 * 1024;

/// Removes the first DER value from `bytes` and encodes it again. The length of nested value number `chosen` gets one
/// byte more than it needs; `count` counts the values.
std::string lengthened(std::string_view& bytes, std::size_t chosen, std::size_t& count) {
  const char tag = bytes.at(0);
  const auto first = static_cast<unsigned char>(bytes.at(1));
  const std::size_t extra = first < 0x80 ? 0 : first & 0x7FU;
  std::size_t size = extra == 0 ? first : 0;
  for (const char byte : bytes.substr(2, extra))
    size = size << 8 | static_cast<unsigned char>(byte);
  std::string_view content = bytes.substr(2 + extra, size);
  bytes.remove_prefix(2 + extra + size);

  const bool isChosen = count++ == chosen;
  std::string encoded;
  if ((tag & 0x20) != 0) {
    while (!content.empty())
      encoded += lengthened(content, chosen, count);
  } else {
    encoded = content;
  }
  std::string length;
  for (std::size_t rest = encoded.size(); rest > 0; rest >>= 8)
    length.insert(length.begin(), static_cast<char>(rest & 0xFF));
  if (length.empty() || isChosen)
    length.insert(length.begin(), '\0');
  if (encoded.size() >= 0x80 || isChosen)
    length.insert(length.begin(), static_cast<char>(0x80 | length.size()));
  return tag + length + encoded;
}

class Reading : public PackageTest {
protected:
  void change(std::size_t offset, const std::string& bytes) const {
    Support::writeFile(package(), Support::readFile(package()).replace(offset, bytes.size(), bytes));
  }

  /// The offset of the container's entry. Its type, offset and count follow, four bytes each.
  std::size_t containerEntry() const { return Support::readFile(package()).find(containerTag, firstEntryOffset); }

  bool readsAs(const std::string& container) const {
    replaceContainer(package(), container);
    return isReadable();
  }
};

TEST_F(Reading, GivesNoSignaturesForAnUnsignedPackage) {
  const auto file = FileWithCmses::fromPath(package());
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->cmses().empty());
}

TEST_F(Reading, GivesTheSignaturesInTheOrderInWhichTheyWereAdded) {
  Support::sign(package(), "source");
  Support::sign(package(), "alice");
  const std::vector<Cms> cmses = FileWithCmses::fromPath(package())->cmses();
  ASSERT_EQ(cmses.size(), 2U);
  EXPECT_EQ(cmses[0].certificate()->keyId(), pki().keyId("source"));
  EXPECT_EQ(cmses[1].certificate()->keyId(), pki().keyId("alice"));
}

TEST_F(Reading, AcceptsSignaturesOfTheOpensslProgram) {
  EXPECT_TRUE(readsAs(opensslCms({"SIGNER:alice"})));
  EXPECT_TRUE(readsAs(opensslCms({"SIGNER:alice", "-keyid"})));
  EXPECT_TRUE(verifies());
}

TEST_F(Reading, FollowsSymlinks) {
  std::filesystem::create_symlink(package(), inSandbox("link"));
  EXPECT_TRUE(FileWithCmses::fromPath(inSandbox("link")));
}

TEST_F(Reading, AcceptsAnyBytesInAPath) {
  const std::string path = inSandbox("a \"b\"\n\\c \xff\xfe.rpm");
  std::filesystem::copy_file(package(), path);
  EXPECT_TRUE(FileWithCmses::fromPath(path));
}

TEST_F(Reading, RefusesAPathWithANullByte) {
  EXPECT_FALSE(FileWithCmses::fromPath(package() + std::string("\0.rpm", 5)));
}

TEST_F(Reading, RefusesOtherTypesOfFiles) {
  Support::makeFifo(inSandbox("fifo"));
  Support::makeSocket(inSandbox("socket"));
  std::filesystem::create_symlink("nowhere", inSandbox("dangling"));
  std::filesystem::create_symlink("loop", inSandbox("loop"));
  for (const char* name : {"fifo", "socket", "dangling", "loop", "", "missing", "sample.rpm/x"})
    EXPECT_FALSE(FileWithCmses::fromPath(inSandbox(name))) << name;
  EXPECT_FALSE(FileWithCmses::fromPath("/dev/zero"));
  EXPECT_FALSE(FileWithCmses::fromPath(""));
}

TEST_F(Reading, DoesNotReadAFileOfSizeZero) {
  // Reading /proc/kmsg blocks until the kernel's next message.
  std::filesystem::create_symlink("/proc/kmsg", inSandbox("kmsg"));
  EXPECT_FALSE(FileWithCmses::fromPath(inSandbox("kmsg")));
}

TEST_F(Reading, WaitsForTheEndOfALease) {
  Support::sign(package(), "alice");
  const auto before = std::signal(SIGIO, SIG_IGN); // the signal that tells the holder of the lease about the open
  const int holder = open(package().c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(fcntl(holder, F_SETLEASE, F_WRLCK), 0) << std::generic_category().message(errno);
  auto reading = std::async(std::launch::async, [this] { return isReadable(); });
  EXPECT_TRUE(Support::waitUntil([&] { return fcntl(holder, F_GETLEASE) == F_RDLCK; }));
  EXPECT_EQ(reading.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  EXPECT_EQ(fcntl(holder, F_SETLEASE, F_UNLCK), 0);
  EXPECT_TRUE(reading.get());
  close(holder);
  std::signal(SIGIO, before);
}

TEST_F(Reading, RefusesFilesThatAreNotPackages) {
  const std::string good = Support::readFile(package());
  for (const std::string& content : {std::string(), std::string("text\n"), std::string(4096, '\0'), good.substr(96)}) {
    Support::writeFile(package(), content);
    EXPECT_FALSE(isReadable());
  }
}

TEST_F(Reading, ChecksTheLead) {
  const std::string good = Support::readFile(package());
  for (const std::size_t offset : {0U, 3U, 78U, 79U, 96U, 98U, 103U}) {
    change(offset, "\x55");
    EXPECT_FALSE(isReadable()) << offset;
    Support::writeFile(package(), good);
  }
  for (const char major : {'\2', '\5', '\xff'}) {
    change(4, {major});
    EXPECT_FALSE(isReadable());
  }
  change(4, "\4");
  EXPECT_TRUE(isReadable());
}

TEST_F(Reading, RefusesAPackageThatEndsBeforeItsContent) {
  Support::sign(package(), "alice");
  const auto contentOffset = static_cast<std::size_t>(PackageSignatures::packageLayout(package()).contentOffset);
  EXPECT_EQ(truncate(package().c_str(), static_cast<off_t>(contentOffset)), 0);
  EXPECT_TRUE(isReadable());
  for (std::size_t size = contentOffset; size-- > 0;) {
    ASSERT_EQ(truncate(package().c_str(), static_cast<off_t>(size)), 0);
    ASSERT_FALSE(isReadable()) << size;
  }
}

TEST_F(Reading, DoesNotAllocateClaimedSizes) {
  Support::sign(package(), "alice");
  const std::string good = Support::readFile(package());
  const std::size_t entry = containerEntry();
  for (const std::uint32_t value : {0x03ffffffU, 0x04000000U, 0x04000001U, 0x7fffffffU, 0xfffffff0U, 0xffffffffU}) {
    for (const std::size_t offset : {entryCountOffset, dataSizeOffset, entry + 8, entry + 12}) {
      Support::writeFile(package(), good);
      change(offset, bigEndian(value));
      largestRequest = 0;
      EXPECT_FALSE(isReadable()) << offset << " " << value;
      EXPECT_LT(largestRequest, 100'000U) << offset << " " << value;
    }
  }
}

TEST_F(Reading, RefusesAHeaderWithoutEntriesOrWithMoreThanRpmReads) {
  const std::string good = Support::readFile(package());
  for (const std::uint32_t count : {0U, 33U}) {
    change(entryCountOffset, bigEndian(count));
    EXPECT_FALSE(isReadable()) << count;
  }
}

TEST_F(Reading, RefusesAMalformedContainer) {
  Support::sign(package(), "alice");
  const std::string good = Support::readFile(package());
  const std::size_t entry = containerEntry();
  for (const std::uint32_t type : {0U, 1U, 6U, 8U, 0xffffffffU}) {
    change(entry + 4, bigEndian(type));
    EXPECT_FALSE(isReadable()) << "type " << type;
  }
  Support::writeFile(package(), good);
  change(entry + 12, bigEndian(0));
  EXPECT_FALSE(isReadable()) << "of no bytes";
}

TEST_F(Reading, RefusesTwoContainers) {
  Support::sign(package(), "alice");
  const std::size_t entry = containerEntry();
  change(entry - 16, Support::readFile(package()).substr(entry, 16));
  EXPECT_FALSE(isReadable());
}

TEST_F(Reading, RefusesATruncatedOrExtendedContainer) {
  Support::sign(package(), "alice");
  const std::string one = container();
  Support::sign(package(), "source");
  const std::string two = container();
  for (std::size_t size = 1; size < two.size(); size += 13)
    ASSERT_EQ(readsAs(two.substr(0, size)), size == one.size()) << size;
  EXPECT_TRUE(readsAs(one));
  EXPECT_TRUE(readsAs(two));
  EXPECT_FALSE(readsAs(two + '\0'));
  EXPECT_FALSE(readsAs('\0' + two));
  EXPECT_FALSE(readsAs(two + "0"));
  EXPECT_FALSE(readsAs("no CMS"));
}

TEST_F(Reading, RefusesAMessageOfAnotherForm) {
  EXPECT_FALSE(readsAs(opensslCms({"SIGNER:alice", "SIGNER:bob"}))) << "two signers";
  EXPECT_FALSE(readsAs(opensslCms({"SIGNER:alice", "-nodetach"}))) << "attached content";
  EXPECT_FALSE(readsAs(opensslCms({"SIGNER:alice", "-nocerts"}))) << "no certificate";
  EXPECT_FALSE(readsAs(opensslCms({"SIGNER:alice", "-nocerts", "-certfile", pki().certificate("bob")})))
      << "somebody else's certificate";
  EXPECT_FALSE(readsAs(opensslCms({"SIGNER:alice", "-md", "sha512"}))) << "another digest";
  EXPECT_FALSE(readsAs(opensslCms({"SIGNER:alice", "UNBOUND", "-noattr"}))) << "no signed attributes";
  EXPECT_FALSE(readsAs(opensslCms({"SIGNER:alice", "-econtent_type", "1.2.3.4"}))) << "another type of content";
  Support::runOrThrow(
      {"openssl", "cms", "-data_create", "-in", package(), "-outform", "DER", "-out", inSandbox("data")});
  EXPECT_FALSE(readsAs(Support::readFile(inSandbox("data")))) << "not signed at all";
}

TEST_F(Reading, RefusesLengthsThatAreNotMinimal) {
  Support::sign(package(), "alice");
  const std::string message = container();
  std::size_t count = 1;
  for (std::size_t chosen = 0; chosen < count; ++chosen) {
    std::string_view rest = message;
    count = 0;
    EXPECT_FALSE(readsAs(lengthened(rest, chosen, count))) << "value " << chosen;
  }
  EXPECT_GT(count, 80U);
}

TEST_F(Reading, RefusesAnIndefiniteLength) {
  Support::sign(package(), "alice");
  const std::string message = container();
  ASSERT_EQ(message[1], '\x82');
  EXPECT_FALSE(readsAs("\x30\x80" + message.substr(4) + std::string(2, '\0')));
}

TEST_F(Reading, RefusesCertificatesOutOfOrder) {
  const std::string two = opensslCms({"SIGNER:alice", "-certfile", pki().certificate("ca")});
  EXPECT_TRUE(readsAs(two));
  std::string alice;
  std::string authority;
  for (const auto& [name, certificate] : {std::pair{"alice", &alice}, {"ca", &authority}}) {
    Support::runOrThrow(
        {"openssl", "x509", "-in", pki().certificate(name), "-outform", "DER", "-out", inSandbox("certificate.der")});
    *certificate = Support::readFile(inSandbox("certificate.der"));
  }
  const bool aliceFirst = two.find(alice + authority) != std::string::npos;
  const std::string& first = aliceFirst ? alice : authority;
  const std::string& second = aliceFirst ? authority : alice;
  EXPECT_FALSE(readsAs(replaced(two, first + second, second + first)));
}

TEST_F(Reading, RefusesTwoCertificatesWithTheSignersIdentifier) {
  const std::string serial =
      Support::runOrThrow({"openssl", "x509", "-in", pki().certificate("alice"), "-noout", "-serial"});
  Support::runOrThrow({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-noenc",
                       "-keyout", inSandbox("rogue.key"), "-subj", "/CN=KRV sandbox authority", "-out",
                       inSandbox("rogue.pem"), "-set_serial", "0x" + serial.substr(7, serial.size() - 8)});
  EXPECT_FALSE(readsAs(opensslCms({"SIGNER:alice", "-certfile", inSandbox("rogue.pem")})));
  EXPECT_TRUE(readsAs(opensslCms({"SIGNER:alice", "-certfile", pki().certificate("ca").string()})));
}

TEST_F(Reading, AcceptsSignaturesUpToTheLimit) {
  Support::sign(package(), "alice");
  const std::string one = container();
  const std::size_t count = mostSignatures / one.size();
  std::string many;
  for (std::size_t i = 0; i < count; ++i)
    many += one;
  EXPECT_TRUE(readsAs(many));
  EXPECT_EQ(FileWithCmses::fromPath(package())->cmses().size(), count);
}

TEST_F(Reading, RefusesSignaturesAboveTheLimit) {
  Support::sign(package(), "alice");
  const std::string one = container();
  // Every signature is valid and at the expected place.
  std::string header("\x8e\xad\xe8\x01\0\0\0\0\0\0\0\1", 12);
  std::string many;
  while (many.size() <= mostSignatures)
    many += one;
  const std::string size = bigEndian(many.size());
  header += size + std::string(containerTag) + bigEndian(7) + bigEndian(0) + size + many;
  header.resize((header.size() + 7) / 8 * 8);
  const std::string file = Support::readFile(package());
  const auto content = static_cast<std::size_t>(PackageSignatures::packageLayout(package()).contentOffset);
  Support::writeFile(package(), file.substr(0, 96) + header + file.substr(content));
  EXPECT_FALSE(isReadable());
}

TEST_F(Reading, RefusesAKeyThatDefinesItsCurve) {
  for (const char* curve : {"P-256", "sect571r1"}) {
    for (const char* encoding : {"named_curve", "explicit"}) {
      Support::runOrThrow({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                           std::string("ec_paramgen_curve:") + curve, "-pkeyopt",
                           std::string("ec_param_enc:") + encoding, "-noenc", "-keyout", inSandbox("rogue.key"),
                           "-subj", "/CN=Curve", "-out", inSandbox("rogue.pem")});
      EXPECT_EQ(readsAs(opensslCms({"SIGNER:alice", "-certfile", inSandbox("rogue.pem")})),
                std::string_view(encoding) == "named_curve")
          << curve << " " << encoding;
    }
  }
}

TEST_F(Reading, AcceptsKeysOfEveryAlgorithm) {
  for (const std::vector<std::string>& algorithm : std::vector<std::vector<std::string>>{
           {"RSA"}, {"RSA-PSS"}, {"EC", "-pkeyopt", "ec_paramgen_curve:P-521"}, {"ED25519"}, {"ED448"}}) {
    std::vector<std::string> command = {"openssl", "genpkey", "-out", inSandbox("other.key"), "-algorithm"};
    command.insert(command.end(), algorithm.begin(), algorithm.end());
    Support::runOrThrow(command);
    Support::runOrThrow({"openssl", "req", "-x509", "-key", inSandbox("other.key"), "-subj", "/CN=Other", "-out",
                         inSandbox("other.pem")});
    EXPECT_TRUE(readsAs(opensslCms({"SIGNER:alice", "-certfile", inSandbox("other.pem")}))) << algorithm[0];
  }
}

TEST_F(Reading, GivesTheKeyIdOfAKeyThatOpensslCannotDecode) {
  Support::sign(package(), "alice");
  const std::string message = container();
  const std::string_view algorithm = "\x2a\x86\x48\xce\x3d\x02\x01";
  const std::string_view curve = "\x2a\x86\x48\xce\x3d\x03\x01\x07";
  const std::string_view pointWithItsLength("\x42\0\x04", 3);
  for (const std::string_view part : {algorithm, curve, pointWithItsLength}) {
    std::string other(part);
    other.back() = '\x7f';
    ASSERT_TRUE(readsAs(replaced(message, part, other)));
    const std::string keyId = onlyCms().certificate()->keyId();
    EXPECT_EQ(keyId.size(), 64U);
    EXPECT_NE(keyId, pki().keyId("alice"));
    EXPECT_FALSE(verifies());
  }
}

TEST_F(Reading, GivesNothingThatVerifiesUntilTheKeysAreDecoded) {
  using PackageSignatures::Keys;
  const PackageSignatures::ErrorQueueCleaner cleaner;
  Support::sign(package(), "alice");
  const std::string message = container();
  const std::string content = Support::readFile(inSandbox("content"));
  PackageSignatures::Digest digest{};
  EVP_Digest(content.data(), content.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
  for (const Keys keys : {Keys::Skipped, Keys::Decoded}) {
    std::string_view bytes = message;
    const auto data = PackageSignatures::takeSignedData(bytes, keys);
    const auto chain = PackageSignatures::checkChain(*data->certificate, {.caPath = pki().trustedCa().c_str()});
    EXPECT_EQ(chain.problems.empty(), keys == Keys::Decoded);
    EXPECT_EQ(PackageSignatures::signatureHolds(*data, digest), keys == Keys::Decoded);
  }
}

TEST_F(Reading, SurvivesEveryFlippedBitOfTheHeader) {
  Support::sign(package(), "alice");
  const std::string good = Support::readFile(package());
  const std::size_t entries = 16 * static_cast<unsigned char>(good[entryCountOffset + 3]);
  for (std::size_t bit = 0; bit < 8 * (firstEntryOffset + entries); ++bit) {
    Support::writeFile(package(), flipped(good, bit));
    isReadable();
    ASSERT_EQ(ERR_peek_error(), 0U) << bit;
  }
}

TEST_F(Reading, EmptiesTheErrorQueue) {
  ERR_raise(ERR_LIB_USER, 1);
  EXPECT_TRUE(isReadable());
}

TEST_F(Reading, NeedsNoSpareDescriptorAfterwards) {
  Support::sign(package(), "alice");
  const auto count = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = count();
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(verifies());
    EXPECT_FALSE(FileWithCmses::fromPath(pki().key("alice")));
  }
  EXPECT_EQ(count(), before);
}

} // namespace
