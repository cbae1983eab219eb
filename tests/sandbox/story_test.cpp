// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/real_device.h"
#include "tests/sandbox/text.h"
#include "tests/support/files/tree.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string tooOldLines(const fs::path& path) {
  return "[E] The package version is lower than or equal to the version of an already installed package: " +
         quoted(path) + "\n" + skippedLine(path);
}

std::string foreignLines(const fs::path& path) {
  return "[E] Package developer doesn't match with the developer of an already installed package: " + quoted(path) +
         "\n" + skippedLine(path);
}

std::string removedLines(const fs::path& path) {
  return "[I] The package was manually removed by the user: " + quoted(path) + "\n" + skippedLine(path);
}

/// An application with one file that all versions have and one file of this version.
Support::PackageInput application(const std::string& name, const std::string& version) {
  return {.name = name,
          .version = version,
          .install = "mkdir -p %{buildroot}/opt/%{name}\n"
                     "echo %{name} %{version} > %{buildroot}/opt/%{name}/about\n"
                     "echo new > %{buildroot}/opt/%{name}/new-in-%{version}"};
}

struct InstalledApplication {
  std::string name;
  std::string version;
  std::string developer;
};

/// One device with several successive images. After each boot the tool's log, the service's answer, the database, the
/// files and the registry must be as expected.
class Story : public testing::Test {
protected:
  void ship(const Support::PackageInput& input, const std::string& developer,
            const std::vector<std::string>& previous = {}) {
    m_device.add(input, developer, previous);
  }

  void boot(const std::map<std::string, RealDevice::Lines>& linesOf) {
    m_device.reboot();
    const Device::Run run = m_device.run();
    EXPECT_EQ(run.log, m_device.expectedLog(linesOf));
    EXPECT_EQ(run.status, 0);
  }

  /// Expects these applications, sorted by name.
  void expectState(const std::vector<InstalledApplication>& applications) {
    std::vector<ServiceClient::Package> list;
    std::string database;
    std::string files = "directory\n";
    for (const auto& [name, version, developer] : applications) {
      list.push_back({{"general.name", name},
                      {"general.version", version + "-1"},
                      {"general.source", ".pre.installed.apps"},
                      {"certificate.id", Support::Pki::instance().keyId(developer)},
                      {"certificate.subgroup", "regular"}});
      const std::string folder = "/opt/" + name;
      database +=
          name + " " + version + "-1: " + folder + " " + folder + "/about " + folder + "/new-in-" + version + "\n";
      files += name + ": directory\n" + name + "/about: file 644 \"" + name + " " + version + "\n\"\n" + name +
               "/new-in-" + version + ": file 644 \"new\n\"\n";
    }
    EXPECT_EQ(m_device.client().list(), list);
    EXPECT_EQ(m_device.database(), database);
    EXPECT_EQ(Support::describeTree(m_device.root() / "opt"), files);
    std::string registry;
    for (const std::string& event : m_events)
      registry += "timestamp=T " + event + "\n";
    EXPECT_EQ(events(), registry);
  }

  /// The registry with the owners' names in place of keys.
  std::string events() const {
    std::string text = m_device.events();
    for (const std::string owner : {"alice", "alice-2", "alice-3", "bob"})
      text = replaced(text, Support::Pki::instance().keyId(owner), owner);
    return text;
  }

  void beginsWithTheFirstImage();
  void getsAnImageWithANewerVersion();
  void getsAnImageWithARotatedKey();
  void losesWhatTheUserRemoves();
  void keepsItAwayFromTheNextImage();
  void takesItFromAnotherDeveloper();
  void keepsARemovalAwayFromTheWholeKeyChain();

  RealDevice m_device;
  /// The expected events of the registry, oldest first.
  std::vector<std::string> m_events;
};

void Story::beginsWithTheFirstImage() {
  ship(application("notes", "1.0"), "alice");
  ship(application("maps", "2.0"), "bob");
  ship(application("player", "0.9"), "alice");
  boot({{"notes.rpm", installedLine}, {"maps.rpm", installedLine}, {"player.rpm", installedLine}});
  for (const fs::path& entry : m_device.entries())
    m_events.push_back("event=I package=" + entry.stem().string() +
                       " keyid=" + (entry.stem() == "maps" ? "bob" : "alice"));
  expectState({{"maps", "2.0", "bob"}, {"notes", "1.0", "alice"}, {"player", "0.9", "alice"}});
}

void Story::getsAnImageWithANewerVersion() {
  ship(application("notes", "1.1"), "alice");
  boot({{"notes.rpm", installedLine}, {"maps.rpm", tooOldLines}, {"player.rpm", tooOldLines}});
  m_events.push_back("event=U package=notes keyid=alice");
  expectState({{"maps", "2.0", "bob"}, {"notes", "1.1", "alice"}, {"player", "0.9", "alice"}});
}

void Story::getsAnImageWithARotatedKey() {
  m_device.clearImage();
  ship(application("notes", "1.2"), "alice-2", {"alice"});
  boot({{"notes.rpm", installedLine}});
  m_events.back() = "event=U package=notes keyid=alice-2 prev-keyids=alice";
  expectState({{"maps", "2.0", "bob"}, {"notes", "1.2", "alice-2"}, {"player", "0.9", "alice"}});

  // The earlier key is no longer valid for an update.
  ship(application("notes", "1.3"), "alice");
  boot({{"notes.rpm", foreignLines}});
  expectState({{"maps", "2.0", "bob"}, {"notes", "1.2", "alice-2"}, {"player", "0.9", "alice"}});
}

void Story::losesWhatTheUserRemoves() {
  m_device.client().remove("player");
  std::erase(m_events, "event=I package=player keyid=alice");
  m_events.push_back("event=R package=player keyid=alice");
  expectState({{"maps", "2.0", "bob"}, {"notes", "1.2", "alice-2"}});
}

void Story::keepsItAwayFromTheNextImage() {
  m_device.clearImage();
  ship(application("player", "0.95"), "alice");
  ship(application("weather", "1.0"), "alice");
  boot({{"player.rpm", removedLines}, {"weather.rpm", installedLine}});
  m_events.push_back("event=I package=weather keyid=alice");
  expectState({{"maps", "2.0", "bob"}, {"notes", "1.2", "alice-2"}, {"weather", "1.0", "alice"}});
}

void Story::takesItFromAnotherDeveloper() {
  m_device.clearImage();
  ship(application("player", "0.1"), "bob");
  boot({{"player.rpm", installedLine}});
  m_events.push_back("event=I package=player keyid=bob");
  expectState(
      {{"maps", "2.0", "bob"}, {"notes", "1.2", "alice-2"}, {"player", "0.1", "bob"}, {"weather", "1.0", "alice"}});
}

void Story::keepsARemovalAwayFromTheWholeKeyChain() {
  m_device.client().remove("notes");
  std::erase(m_events, "event=I package=notes keyid=alice");
  std::erase(m_events, "event=U package=notes keyid=alice-2 prev-keyids=alice");
  m_events.push_back("event=R package=notes keyid=alice-2 prev-keyids=alice");
  m_device.clearImage();
  ship(application("notes", "1.0"), "alice");
  boot({{"notes.rpm", removedLines}});
  expectState({{"maps", "2.0", "bob"}, {"player", "0.1", "bob"}, {"weather", "1.0", "alice"}});

  // A new key, which the removal does not contain, brings the application back; pruning follows its key chain.
  ship(application("notes", "2.0"), "alice-3", {"alice", "alice-2"});
  boot({{"notes.rpm", installedLine}});
  m_events.back() = "event=I package=notes keyid=alice-3 prev-keyids=alice->alice-2";
  expectState(
      {{"maps", "2.0", "bob"}, {"notes", "2.0", "alice-3"}, {"player", "0.1", "bob"}, {"weather", "1.0", "alice"}});
}

TEST_F(Story, CoversADeviceWithSeveralImages) {
  beginsWithTheFirstImage();
  getsAnImageWithANewerVersion();
  getsAnImageWithARotatedKey();
  losesWhatTheUserRemoves();
  keepsItAwayFromTheNextImage();
  takesItFromAnotherDeveloper();
  keepsARemovalAwayFromTheWholeKeyChain();
}

// Many packages at once

constexpr int crowdSize = 200;

std::string crowdName(int number) {
  std::string digits = std::to_string(number);
  return "app" + std::string(3 - digits.size(), '0') + digits;
}

/// All are copies of one package under other names, because building packages takes long.
class Crowd : public testing::Test {
protected:
  Crowd() {
    const fs::path first = m_device.rpm().path() / "app000.rpm";
    m_device.rpm().build({.name = "app000", .globals = "%global _binary_payload w.ufdio"}, first);
    for (int number = 0; number < crowdSize; ++number) {
      const fs::path path = m_device.preinstallDirectory() / (crowdName(number) + ".rpm");
      fs::copy_file(first, path);
      if (number != 0)
        Support::replaceEverywhere(path, "app000", crowdName(number));
      Support::sign(path, "alice");
    }
  }

  std::string expectedLog(const RealDevice::Lines& lines) const {
    std::map<std::string, RealDevice::Lines> linesOf;
    for (int number = 0; number < crowdSize; ++number)
      linesOf[crowdName(number) + ".rpm"] = lines;
    return m_device.expectedLog(linesOf);
  }

  RealDevice m_device;
};

TEST_F(Crowd, IsInstalledInOneRunAndSkippedInTheNext) {
  EXPECT_EQ(m_device.run().log, expectedLog(installedLine));
  std::vector<std::string> installed;
  std::string database;
  for (int number = 0; number < crowdSize; ++number) {
    const std::string name = crowdName(number);
    installed.push_back(name + " 1.0-1");
    database += name + " 1.0-1: /opt/" + name + " /opt/" + name + "/file\n";
    EXPECT_EQ(Support::readFile(m_device.root() / "opt" / name / "file"), "content\n");
  }
  EXPECT_EQ(m_device.client().installed(), installed);
  EXPECT_EQ(m_device.database(), database);
  std::string events;
  for (const fs::path& entry : m_device.entries())
    events += "timestamp=T event=I package=" + entry.stem().string() +
              " keyid=" + Support::Pki::instance().keyId("alice") + "\n";
  EXPECT_EQ(m_device.events(), events);
  EXPECT_EQ(m_device.run().log, expectedLog(tooOldLines));
  EXPECT_EQ(m_device.client().installed(), installed);
}

} // namespace
