// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/packaging/unit.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

namespace fs = std::filesystem;

/// The project, installed with `cmake --install` into a temporary folder.
class Installation : public testing::Test {
protected:
  void SetUp() override {
    if (access(KRV_BUILD_DIRECTORY, W_OK) != 0)
      GTEST_SKIP() << "cmake writes a list of the installed files to the build folder, which another user owns";
    Support::runOrThrow({"cmake", "--install", KRV_BUILD_DIRECTORY}, {{"DESTDIR", m_directory.path().string()}});
  }

  fs::path installed(const fs::path& path) const { return m_directory / path.relative_path(); }

  /// All entries below the prefix except folders, sorted, with octal permissions.
  std::string files() const {
    std::vector<std::string> lines;
    const fs::path prefix = installed(KRV_INSTALL_PREFIX);
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_directory.path())) {
      if (entry.is_directory())
        continue;
      char permissions[8];
      std::snprintf(permissions, sizeof permissions, "%03o ", static_cast<unsigned>(entry.status().permissions()));
      lines.push_back(permissions + entry.path().lexically_relative(prefix).string() + "\n");
    }
    std::ranges::sort(lines, {}, [](const std::string& line) { return line.substr(4); });
    std::string result;
    for (const std::string& line : lines)
      result += line;
    return result;
  }

  Support::TempDirectory m_directory;
};

TEST_F(Installation, HasExactlyTheseFiles) {
  EXPECT_EQ(files(), "755 bin/krv-image-check\n"
                     "755 bin/krv-log-report\n"
                     "755 bin/krv-package-signature\n"
                     "644 lib/systemd/system-preset/80-krv-pre-installer.preset\n"
                     "644 lib/systemd/system/krv-pre-installer.service\n"
                     "644 lib/tmpfiles.d/krv-pre-installer.conf\n"
                     "755 sbin/krv-pre-installer\n"
                     "644 share/doc/krv-pre-installer/CHANGELOG.md\n"
                     "644 share/doc/krv-pre-installer/LICENSE\n"
                     "644 share/doc/krv-pre-installer/README.md\n"
                     "644 share/doc/krv-pre-installer/docs/decision.svg\n"
                     "644 share/doc/krv-pre-installer/docs/fleet.md\n"
                     "644 share/doc/krv-pre-installer/docs/image-check.md\n"
                     "644 share/doc/krv-pre-installer/docs/image-check.schema.json\n"
                     "644 share/doc/krv-pre-installer/docs/platform.md\n"
                     "644 share/doc/krv-pre-installer/docs/signature-format.md\n"
                     "644 share/doc/krv-pre-installer/docs/signing.md\n"
                     "644 share/doc/krv-pre-installer/docs/troubleshooting.md\n"
                     "644 share/doc/krv-pre-installer/docs/velta.KRV.xml\n"
                     "644 share/doc/krv-pre-installer/velta.KRV.conf.example\n"
                     "644 share/man/man1/krv-image-check.1.gz\n"
                     "644 share/man/man1/krv-log-report.1.gz\n"
                     "644 share/man/man1/krv-package-signature.1.gz\n"
                     "644 share/man/man5/krv-registry.5.gz\n"
                     "644 share/man/man8/krv-pre-installer.8.gz\n");
}

/// The relative links in the documents of a folder; web links are left out.
std::set<fs::path> linksOf(const fs::path& folder) {
  static const std::regex link("\\]\\(([^)#]+)[^)]*\\)");
  std::set<fs::path> links;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.path().extension() != ".md")
      continue;
    const std::string text = Support::readFile(entry.path());
    for (std::sregex_iterator match(text.begin(), text.end(), link), end; match != end; ++match)
      if (!(*match)[1].str().starts_with("http"))
        links.insert((entry.path().parent_path() / (*match)[1].str()).lexically_normal().lexically_relative(folder));
  }
  return links;
}

TEST_F(Installation, HasTheTargetsOfAllLinks) {
  const fs::path documents = installed(KRV_INSTALL_PREFIX) / "share/doc/krv-pre-installer";
  std::set<fs::path> missing;
  const std::set<fs::path> links = linksOf(documents);
  for (const fs::path& link : links)
    if (!fs::exists(documents / link))
      missing.insert(link);
  EXPECT_EQ(missing, std::set<fs::path>());
  EXPECT_TRUE(links.contains("docs/platform.md")) << "the links have not been found";
}

TEST_F(Installation, HasTheFilesThatTheUnitNames) {
  EXPECT_TRUE(fs::exists(installed(valuesInUnit("ExecStart").at(0))));
  EXPECT_EQ(valuesInUnit("Documentation"), std::vector<std::string>{"man:krv-pre-installer(8)"});
  EXPECT_EQ(Support::readFile(unitFile()),
            Support::readFile(installed(KRV_INSTALL_PREFIX) / "lib/systemd/system/krv-pre-installer.service"));
}

TEST_F(Installation, HasTheManualPagesOfTheSource) {
  const fs::path page = installed(KRV_INSTALL_PREFIX) / "share/man/man5/krv-registry.5.gz";
  EXPECT_EQ(Support::runOrThrow({"gzip", "-dc", page.string()}),
            Support::readFile(fs::path(KRV_SOURCE_DIRECTORY) / "docs/man/krv-registry.5"));
}

/// The registry's folder and the registry below a root, with their permissions in octal, and the registry's content.
std::string registryBelow(const fs::path& root) {
  const auto permissions = [](const fs::path& path) {
    char text[8];
    std::snprintf(text, sizeof text, "%03o ", static_cast<unsigned>(fs::status(path).permissions()));
    return std::string(text);
  };
  const fs::path folder = root / "var/lib/krv";
  return permissions(folder) + permissions(folder / "registry") + "'" + Support::readFile(folder / "registry") + "'";
}

TEST_F(Installation, CreatesAnEmptyRegistryAndKeepsAnExistingOne) {
  if (geteuid() != 0)
    GTEST_SKIP() << "only root can create files of root";
  const fs::path settings = installed(KRV_INSTALL_PREFIX) / "lib/tmpfiles.d/krv-pre-installer.conf";
  const Support::TempDirectory root;
  const auto create = [&] {
    return Support::runOrThrow({"systemd-tmpfiles", "--root=" + root.path().string(), "--create", settings.string()});
  };
  EXPECT_EQ(create(), "");
  EXPECT_EQ(registryBelow(root.path()), "755 600 ''");
  Support::writeFile(root / "var/lib/krv/registry", "records");
  fs::permissions(root / "var/lib/krv/registry", fs::perms(0644));
  fs::permissions(root / "var/lib/krv", fs::perms(0700));
  EXPECT_EQ(create(), "");
  EXPECT_EQ(registryBelow(root.path()), "700 644 'records'");
}

TEST_F(Installation, IsEnabledByTheDefaultsOfADistributionThatDisablesUnits) {
  // `systemctl preset-all` goes by the first preset that matches; such a distribution ends with this one.
  const fs::path presets = m_directory / "usr/lib/systemd/system-preset";
  fs::create_directories(presets);
  Support::writeFile(presets / "99-default.preset", "disable *\n");
  Support::runOrThrow({"systemctl", "--root=" + m_directory.path().string(), "preset-all"});
  EXPECT_TRUE(fs::is_symlink(m_directory / "etc/systemd/system/multi-user.target.wants/krv-pre-installer.service"));
}

TEST(Tool, CarriesItsVersion) {
  EXPECT_THAT(Support::runOrThrow({"readelf", "--string-dump=.note.package", Support::program("krv-pre-installer")}),
              testing::HasSubstr("{\"name\":\"krv-pre-installer\",\"version\":\"" KRV_VERSION "\"}\n"));
}

TEST(SpecFile, HasTheVersionOfTheProject) {
  const std::string spec = Support::readFile(fs::path(KRV_SOURCE_DIRECTORY) / "packaging/krv-pre-installer.spec");
  static const std::regex pattern("\nVersion: *([^\n]*)\n");
  std::smatch version;
  ASSERT_TRUE(std::regex_search(spec, version, pattern));
  EXPECT_EQ(version[1], KRV_VERSION);
}

} // namespace
