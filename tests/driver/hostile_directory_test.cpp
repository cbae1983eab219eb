// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"
#include "common/rpm/reader.h"
#include "tests/driver/device.h"
#include "tests/support/files/special_files.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/signing/pki.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <string>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Support::mainHeaderOffset;
using Support::payloadOffset;
using Support::readFile;
using Support::writeFile;

/// The expected outcome of an entry.
enum class Fate {
  Offered,   ///< offered to the service, which installs it
  Unnamable, ///< offered, but its path is not UTF-8, so the bus refuses it
  Skipped,   ///< skipped as unreadable
  Either,    ///< offered or skipped: the damage may be in unused bytes
};

constexpr std::size_t leadSize = 96;

/// A pre-install directory that an attacker filled.
class HostileDirectory : public testing::Test {
protected:
  HostileDirectory() {
    const char* seed = std::getenv("KRV_HOSTILE_SEED");
    m_seed = seed == nullptr ? 20261121 : static_cast<std::mt19937::result_type>(std::stoul(seed));
    m_random.seed(m_seed);
    makeTemplate("alice", "alice");
    makeTemplate("rotated", "alice-3", {"alice", "alice-2"});
    makeTemplate("two", "bob");
    Support::sign(templatePath("two"), "source");
    m_templates["two"] = readFile(templatePath("two"));
  }

  std::size_t below(std::size_t limit) { return m_random() % limit; }
  std::size_t between(std::size_t begin, std::size_t end) { return begin + below(end - begin); }

  fs::path in(const std::string& name) const { return m_device.preinstallDirectory() / name; }

  /// A random good package.
  const std::string& anyPackage() { return std::next(m_templates.begin(), static_cast<long>(below(3)))->second; }

  void add(const std::string& name, std::string_view bytes, Fate fate) {
    writeFile(in(name), bytes);
    expect(name, fate);
  }
  void add(std::string_view bytes, Fate fate) { add("entry-" + std::to_string(m_fates.size()), bytes, fate); }
  void expect(const std::string& name, Fate fate) { ASSERT_TRUE(m_fates.emplace(in(name), fate).second) << name; }

  /// A package without digests of its headers, so that librpm's own checks read the changed values.
  std::string withoutDigests(const std::function<void(Header)>& change = [](Header) {}) {
    m_device.rpm().build({}, templatePath("plain"));
    Support::changeHeader(templatePath("plain"), change);
    Support::sign(templatePath("plain"), "alice");
    return readFile(templatePath("plain"));
  }

  void addGood(int count);
  void addTruncated(int count);
  void addFlipped(int count);
  void addAbsurd(int count);
  void addGarbage(int count);
  void addBombs();
  void addOddNames();
  void addSpecialFiles();

  void checkOutcomes(std::string_view log) const;

  std::mt19937::result_type m_seed;
  std::mt19937 m_random;
  Device m_device;
  std::map<std::string, std::string> m_templates; ///< the bytes of good packages
  std::map<fs::path, Fate> m_fates;

private:
  fs::path templatePath(const std::string& name) const { return m_device.root() / (name + ".rpm"); }

  void makeTemplate(const std::string& name, const std::string& developer,
                    const std::vector<std::string>& previous = {}) {
    m_device.rpm().build({.name = name}, templatePath(name));
    Support::sign(templatePath(name), developer, previous);
    m_templates[name] = readFile(templatePath(name));
  }
};

std::string flipped(std::string bytes, std::size_t offset, std::size_t bit) {
  bytes.at(offset) = static_cast<char>(bytes.at(offset) ^ (1 << bit));
  return bytes;
}

/// The offset of the signatures. They begin with an outer SEQUENCE, the type of the message and a tag: 19 bytes, in
/// which each bit matters.
std::size_t signaturesOffset(const std::string& package) {
  const std::size_t begin = package.find(std::string("\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x07\x02", 11));
  EXPECT_NE(begin, std::string::npos);
  return begin - 4;
}

void HostileDirectory::addGood(int count) {
  for (int i = 0; i < count; ++i)
    add(anyPackage(), Fate::Offered);
}

void HostileDirectory::addTruncated(int count) {
  for (const auto& [name, bytes] : m_templates) {
    const std::size_t main = mainHeaderOffset(bytes);
    const std::size_t payload = payloadOffset(bytes);
    for (const std::size_t boundary : {leadSize, leadSize + 16, signaturesOffset(bytes), main, main + 16, payload})
      for (const std::size_t size : {boundary - 1, boundary, boundary + 1})
        add(bytes.substr(0, size), size < payload ? Fate::Skipped : Fate::Offered);
    count -= 18;
  }
  for (; count > 0; --count) {
    const std::string& bytes = anyPackage();
    add(bytes.substr(0, below(payloadOffset(bytes))), Fate::Skipped);
  }
}

void HostileDirectory::addFlipped(int count) {
  for (int i = 0; i < count; ++i) {
    const std::string& bytes = anyPackage();
    const std::size_t main = mainHeaderOffset(bytes);
    const std::size_t signatures = signaturesOffset(bytes);
    const auto addFlip = [&](std::size_t begin, std::size_t end, Fate fate) {
      add(flipped(bytes, between(begin, end), below(8)), fate);
    };
    switch (i % 6) {
    case 0:
      addFlip(0, leadSize, Fate::Either);
      break;
    case 1: // the magic of the signature header
      addFlip(leadSize, leadSize + 8, Fate::Skipped);
      break;
    case 2:
      addFlip(leadSize + 8, main, Fate::Either);
      break;
    case 3:
      addFlip(main, payloadOffset(bytes), Fate::Skipped);
      break;
    case 4:
      addFlip(signatures, signatures + 19, Fate::Skipped);
      break;
    case 5:
      addFlip(signatures + 19, signatures + 700, Fate::Either);
      break;
    }
  }
}

void HostileDirectory::addAbsurd(int count) {
  const std::array<std::string, 8> numbers = {std::string("\0\0\0\0", 4),       std::string("\xff\xff\xff\xff"),
                                              std::string("\x7f\xff\xff\xff"),  std::string("\x80\0\0\0", 4),
                                              std::string("\x10\0\0\0", 4),     std::string("\x0f\xff\xff\xff"),
                                              std::string("\0\x0f\xff\xff", 4), std::string("\x03\xff\xff\xf0")};
  const std::string plain = withoutDigests();
  for (const std::string& bytes : {plain, m_templates["alice"]})
    for (const std::size_t header : {leadSize, mainHeaderOffset(bytes)})
      for (const std::string& number : numbers)
        for (const std::size_t field : {std::size_t{8}, std::size_t{12}}) {
          add(std::string(bytes).replace(header + field, 4, number), Fate::Skipped);
          --count;
        }
  const std::size_t main = mainHeaderOffset(plain);
  const std::size_t entries = static_cast<unsigned char>(plain[main + 11]);
  for (; count > 0; --count) { // type, offset or count of one tag; whole words of the data, some at the end of a text
    const bool isEntry = count % 3 != 0;
    const std::size_t place = isEntry ? main + 16 + 16 * below(entries) + 4 * between(1, 4)
                                      : between(main + 16 + 16 * entries, payloadOffset(plain) - 4);
    const std::string number = numbers[below(numbers.size())];
    add(std::string(plain).replace(place, 4, isEntry ? number : "AAAA"), Fate::Either);
  }
  // A main header that is as large as it claims, in a sparse file; and names that are too long for the bus.
  add("sparse", plain.substr(0, main + 12) + numbers[5], Fate::Skipped);
  fs::resize_file(in("sparse"), 300'000'000);
  constexpr std::size_t longestName = 1024 * 1024;
  for (const auto& [size, fate] : {std::pair(longestName, Fate::Offered), std::pair(longestName + 1, Fate::Skipped),
                                   std::pair(33 * longestName, Fate::Skipped)}) {
    const std::string name(size, 'n');
    add(withoutDigests([&](Header header) {
          headerDel(header, RPMTAG_NAME);
          headerPutString(header, RPMTAG_NAME, name.c_str());
        }),
        fate);
  }
}

void HostileDirectory::addGarbage(int count) {
  for (int i = 0; i < count; ++i) {
    std::string bytes(i % 10 == 0 ? 0 : below(5000), '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(below(256));
    const std::string& package = anyPackage();
    const std::array<std::size_t, 3> kept = {0, leadSize, mainHeaderOffset(package)};
    add(package.substr(0, kept[static_cast<std::size_t>(i) % 3]) + bytes, Fate::Skipped);
  }
}

/// Payloads of half a megabyte that decompress to half a gigabyte. The tool does not decompress them, so they are good
/// packages.
void HostileDirectory::addBombs() {
  const std::string member = Support::runOrThrow({"sh", "-c", "head -c 67108864 /dev/zero | gzip -1"});
  std::string bomb;
  for (int i = 0; i < 8; ++i)
    bomb += member;
  for (const std::string name : {"bomb-1", "bomb-2", "bomb-3"}) {
    add(name, m_templates["alice"], Fate::Offered);
    Support::replacePayload(in(name), bomb);
    Support::sign(in(name), "alice");
  }
}

void HostileDirectory::addOddNames() {
  const std::string good = m_templates["alice"];
  const std::string bad = good.substr(0, 1000);
  for (const std::string& name :
       {std::string("new\nline"), std::string("qu\"ote"), std::string("back\\slash"),
        std::string("\n[E] Failed to pre-install package: \"x\"\n"), std::string("\x01\x1b[2J"), std::string("%s%n"),
        std::string(" "), std::string("-rf")}) {
    add("good " + name, good, Fate::Offered);
    add("bad " + name, bad, Fate::Skipped);
  }
  add(std::string(255, 'g'), good, Fate::Offered);
  add(std::string(255, 'b'), bad, Fate::Skipped);
  add("good \xff\xfe", good, Fate::Unnamable);
  add("good \xc0\xaf", good, Fate::Unnamable);
  add("bad \xff\xfe", bad, Fate::Skipped);
}

void HostileDirectory::addSpecialFiles() {
  Support::makeFifo(in("fifo"));
  Support::makeSocket(in("socket"));
  fs::create_directory(in("folder"));
  fs::create_symlink("/dev/zero", in("link-to-device"));
  fs::create_symlink("fifo", in("link-to-fifo"));
  fs::create_symlink("/", in("link-to-root"));
  for (const char* name : {"fifo", "socket", "folder", "link-to-device", "link-to-fifo", "link-to-root"})
    expect(name, Fate::Skipped);
  if (mknod(in("device").c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0) // only root can create /dev/zero
    expect("device", Fate::Skipped);
  add("locked", m_templates["alice"], geteuid() == 0 ? Fate::Offered : Fate::Skipped);
  fs::permissions(in("locked"), fs::perms::none);
}

/// Removes `text` from the beginning of `log`; false if `log` does not begin with it.
bool take(std::string_view& log, std::string_view text) {
  if (!log.starts_with(text))
    return false;
  log.remove_prefix(text.size());
  return true;
}

bool takeSkip(std::string_view& log, const fs::path& path) {
  for (const std::string& reason : {std::string("Couldn't read rpm package"), std::string("Couldn't open rpm package"),
                                    std::string("Couldn't retrieve rpm tag from package (type=1000)"),
                                    std::string("Couldn't retrieve rpm tag from package (type=1001)"),
                                    std::string("Couldn't retrieve rpm tag from package (type=1002)"),
                                    "Couldn't open RPM package for reading cmses: " + path.string(),
                                    std::string("Package doesn't have developer signature")}) {
    if (take(log, unreadableLines(reason, path)))
      return true;
  }
  return false;
}

const std::string noText = "Failed to serialize a string value (Invalid argument)\n";

/// Removes the lines of an offered package. The damage may have changed its name into one that the bus refuses.
bool takeOffer(std::string_view& log, const fs::path& path, const std::string& outcome) {
  if (take(log, "[E] " + noText) &&
      !take(log, "[E] Failed to query information about installed package: " +
                     Common::Rpm::Reader(path.string()).tag(Common::Rpm::Tag::Name) + "\n"))
    return false;
  return take(log, outcome);
}

/// Expects exactly one outcome per entry in the log, in the order of the listing, and the matching calls to the
/// service.
void HostileDirectory::checkOutcomes(std::string_view log) const {
  std::vector<std::string> offered;
  for (const fs::path& path : m_device.entries()) {
    const Fate fate = m_fates.at(path);
    const std::string_view before = log;
    if (fate == Fate::Unnamable) {
      ASSERT_TRUE(takeOffer(log, path, "[E] Package installation error: " + noText + failedLine(path))) << path;
    } else if (fate != Fate::Skipped && takeOffer(log, path, installedLine(path))) {
      offered.push_back(path);
    } else {
      log = before;
      ASSERT_TRUE(fate != Fate::Offered && takeSkip(log, path)) << path << "\n" << log.substr(0, 1000);
    }
  }
  EXPECT_EQ(log, timeLine);

  std::vector<std::string> installed;
  for (const Support::ReceivedCall& call : m_device.service().calls()) {
    if (call.member == "Install")
      installed.push_back(call.arguments);
  }
  ASSERT_EQ(installed.size(), offered.size());
  for (std::size_t i = 0; i < offered.size(); ++i)
    EXPECT_EQ(installed[i], Support::installCall(offered[i]).arguments);
}

TEST_F(HostileDirectory, DoesNotPreventTheInstallationOfGoodPackages) {
  addGood(485); // 15 others have names or payloads that harm a careless reader
  addTruncated(300);
  addFlipped(600);
  addAbsurd(400);
  addGarbage(150);
  addBombs();
  addOddNames();
  addSpecialFiles();
  addGarbage(2000 - static_cast<int>(m_fates.size()));

  ASSERT_EQ(m_device.entries().size(), 2000U);
  ASSERT_EQ(m_fates.size(), 2000U);
  SCOPED_TRACE("KRV_HOSTILE_SEED=" + std::to_string(m_seed));

  const Device::Run run = m_device.runWithin(244);
  EXPECT_EQ(run.status, 0);
  checkOutcomes(run.log);
}

TEST_F(HostileDirectory, CannotBeListedWithADanglingSymlink) {
  addGood(1);
  fs::create_symlink("loop", in("loop"));
  const Device::Run run = m_device.run();
  EXPECT_EQ(run.log, "[E] filesystem error: cannot get file time: Too many levels of symbolic links [" +
                         in("loop").string() +
                         "]\n[E] Couldn't read directory: " + m_device.preinstallDirectory().string() +
                         "\n[E] Failed to get a list of packages to pre-install\n");
  EXPECT_EQ(run.status, 1);
}

} // namespace
