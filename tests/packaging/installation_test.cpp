// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/packaging/unit.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace {

namespace fs = std::filesystem;

/// The octal permissions of each file by its path, which is relative to the prefix.
using Files = std::map<std::string, std::string>;

/// The project, installed with `cmake --install` into a temporary folder.
class Installation : public testing::Test {
protected:
  void SetUp() override {
    if (access(KRV_BUILD_DIRECTORY, W_OK) != 0)
      GTEST_SKIP() << "cmake writes a list of the installed files to the build folder, which another user owns";
  }

  void install(const std::vector<std::string>& options = {}) const {
    std::vector<std::string> command = {"cmake", "--install", KRV_BUILD_DIRECTORY};
    command.insert(command.end(), options.begin(), options.end());
    Support::runOrThrow(command, {{"DESTDIR", m_directory.path().string()}});
  }

  fs::path installed(const fs::path& path) const { return m_directory / path.relative_path(); }
  fs::path tool() const { return installed(KRV_INSTALL_PREFIX) / "sbin/krv-pre-installer"; }

  /// All entries except folders.
  Files files() const {
    Files result;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_directory.path())) {
      if (entry.is_directory())
        continue;
      char permissions[8];
      std::snprintf(permissions, sizeof permissions, "%03o", static_cast<unsigned>(entry.status().permissions()));
      result[entry.path().lexically_relative(installed(KRV_INSTALL_PREFIX)).string()] = permissions;
    }
    return result;
  }

  Support::TempDirectory m_directory;
};

const Files filesOfDevice = {{"bin/krv-log-report", "755"},
                             {"lib/systemd/system-preset/80-krv-pre-installer.preset", "644"},
                             {"lib/systemd/system/krv-pre-installer.service", "644"},
                             {"lib/tmpfiles.d/krv-pre-installer.conf", "644"},
                             {"sbin/krv-pre-installer", "755"},
                             {"share/bash-completion/completions/krv-log-report", "644"},
                             {"share/doc/krv-pre-installer/LICENSE", "644"},
                             {"share/fish/vendor_completions.d/krv-log-report.fish", "644"},
                             {"share/man/man1/krv-log-report.1.gz", "644"},
                             {"share/man/man5/krv-registry.5.gz", "644"},
                             {"share/man/man8/krv-pre-installer.8.gz", "644"},
                             {"share/zsh/site-functions/_krv-log-report", "644"}};

const Files filesOfBuildMachine = {{"bin/krv-image-check", "755"},
                                   {"bin/krv-package-signature", "755"},
                                   {"share/bash-completion/completions/krv-image-check", "644"},
                                   {"share/bash-completion/completions/krv-package-signature", "644"},
                                   {"share/doc/krv-pre-installer/CHANGELOG.md", "644"},
                                   {"share/doc/krv-pre-installer/LICENSE", "644"},
                                   {"share/doc/krv-pre-installer/README.md", "644"},
                                   {"share/doc/krv-pre-installer/docs/decision.svg", "644"},
                                   {"share/doc/krv-pre-installer/docs/fleet.md", "644"},
                                   {"share/doc/krv-pre-installer/docs/image-builders.md", "644"},
                                   {"share/doc/krv-pre-installer/docs/image-check-broken.html", "644"},
                                   {"share/doc/krv-pre-installer/docs/image-check-broken.png", "644"},
                                   {"share/doc/krv-pre-installer/docs/image-check-repaired.html", "644"},
                                   {"share/doc/krv-pre-installer/docs/image-check-repaired.png", "644"},
                                   {"share/doc/krv-pre-installer/docs/image-check.md", "644"},
                                   {"share/doc/krv-pre-installer/docs/image-check.schema.json", "644"},
                                   {"share/doc/krv-pre-installer/docs/platform.md", "644"},
                                   {"share/doc/krv-pre-installer/docs/signature-format.md", "644"},
                                   {"share/doc/krv-pre-installer/docs/signing.md", "644"},
                                   {"share/doc/krv-pre-installer/docs/troubleshooting.md", "644"},
                                   {"share/doc/krv-pre-installer/docs/velta.KRV.xml", "644"},
                                   {"share/doc/krv-pre-installer/krv-service.service.example", "644"},
                                   {"share/doc/krv-pre-installer/velta.KRV.conf.example", "644"},
                                   {"share/doc/krv-pre-installer/velta.KRV.service.example", "644"},
                                   {"share/man/man1/krv-image-check.1.gz", "644"},
                                   {"share/man/man1/krv-package-signature.1.gz", "644"},
                                   {"share/fish/vendor_completions.d/krv-image-check.fish", "644"},
                                   {"share/fish/vendor_completions.d/krv-package-signature.fish", "644"},
                                   {"share/zsh/site-functions/_krv-image-check", "644"},
                                   {"share/zsh/site-functions/_krv-package-signature", "644"}};

TEST_F(Installation, HasExactlyTheFilesOfDeviceAndBuildMachine) {
  install();
  Files all = filesOfDevice;
  all.insert(filesOfBuildMachine.begin(), filesOfBuildMachine.end());
  EXPECT_EQ(files(), all);
}

TEST_F(Installation, OfTheDeviceHasExactlyTheseFiles) {
  install({"--component", "device"});
  EXPECT_EQ(files(), filesOfDevice);
}

TEST_F(Installation, OfTheBuildMachineHasExactlyTheseFiles) {
  install({"--component", "build-machine"});
  EXPECT_EQ(files(), filesOfBuildMachine);
}

TEST_F(Installation, StripsThePrograms) {
  const auto symbolsOf = [](const fs::path& program) {
    return Support::runOrThrow({"readelf", "--section-headers", "--wide", program});
  };
  install({"--component", "device"});
  EXPECT_THAT(symbolsOf(tool()), testing::HasSubstr(" .symtab "));
  install({"--component", "device", "--strip"});
  EXPECT_THAT(symbolsOf(tool()), testing::Not(testing::HasSubstr(" .symtab ")));
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
  install();
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
  install();
  EXPECT_TRUE(fs::exists(installed(valuesInUnit("ExecStart").at(0))));
  EXPECT_EQ(valuesInUnit("Documentation"), std::vector<std::string>{"man:krv-pre-installer(8)"});
  EXPECT_EQ(Support::readFile(unitFile()),
            Support::readFile(installed(KRV_INSTALL_PREFIX) / "lib/systemd/system/krv-pre-installer.service"));
}

TEST_F(Installation, HasTheManualPagesOfTheSource) {
  install();
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
  install();
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
  install();
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

/// The spec file of the RPM packages.
std::string specFile() {
  return Support::readFile(fs::path(KRV_SOURCE_DIRECTORY) / "packaging/krv-pre-installer.spec");
}

/// The paths of a %files section of the spec, relative to the prefix. A folder stands for its files among `known`.
std::set<std::string> filesInSpec(const std::string& section, const Files& known) {
  static const std::vector<std::pair<std::string, std::string>> macros = {
      {"%{_docdir}/%{name}", "share/doc/krv-pre-installer"},
      {"%{_bindir}", "bin"},
      {"%{_sbindir}", "sbin"},
      {"%{_datadir}", "share"},
      {"%{_mandir}", "share/man"},
      {"%{_presetdir}", "lib/systemd/system-preset"},
      {"%{_tmpfilesdir}", "lib/tmpfiles.d"},
      {"%{_unitdir}", "lib/systemd/system"}};
  std::istringstream lines(specFile());
  std::string line;
  while (std::getline(lines, line) && line != section)
    ;
  std::set<std::string> paths;
  while (std::getline(lines, line) && !line.empty() && line != "%endif") {
    if (line.starts_with("%dir "))
      continue;
    for (const auto& [macro, folder] : macros)
      if (const std::size_t place = line.find(macro); place != std::string::npos)
        line = folder + line.substr(place + macro.size());
    if (line.ends_with('*'))
      line.replace(line.size() - 1, 1, ".gz");
    const std::size_t before = paths.size();
    for (const auto& [path, permissions] : known)
      if (path == line || path.starts_with(line + "/"))
        paths.insert(path);
    if (paths.size() == before)
      paths.insert(line);
  }
  return paths;
}

std::set<std::string> pathsOf(const Files& files) {
  std::set<std::string> paths;
  for (const auto& [path, permissions] : files)
    paths.insert(path);
  return paths;
}

TEST(SpecFile, HasThePackagesOfTheComponents) {
  EXPECT_EQ(filesInSpec("%files", filesOfDevice), pathsOf(filesOfDevice));
  std::set<std::string> tools = filesInSpec("%files -n krv-image-tools", filesOfBuildMachine);
  tools.merge(filesInSpec("%files doc", filesOfBuildMachine));
  EXPECT_EQ(tools, pathsOf(filesOfBuildMachine));
}

TEST(SpecFile, HasTheVersionOfTheProject) {
  const std::string spec = specFile();
  static const std::regex pattern("\nVersion: *([^\n]*)\n");
  std::smatch version;
  ASSERT_TRUE(std::regex_search(spec, version, pattern));
  EXPECT_EQ(version[1], KRV_VERSION);
}

} // namespace
