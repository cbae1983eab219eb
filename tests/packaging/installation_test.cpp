// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/packaging/unit.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// The project as `cmake --install` puts it below a folder.
class Installation : public testing::Test {
protected:
  Installation() {
    Support::runOrThrow({"cmake", "--install", KRV_BUILD_DIRECTORY}, {{"DESTDIR", m_directory.path().string()}});
  }

  fs::path installed(const fs::path& path) const { return m_directory / path.relative_path(); }

  /// All that is no folder below the prefix, in order, with its permissions in octal.
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

TEST_F(Installation, HasTheseFilesAndNoOthers) {
  EXPECT_EQ(files(), "755 bin/krv-package-signature\n"
                     "644 lib/systemd/system/krv-pre-installer.service\n"
                     "755 sbin/krv-pre-installer\n"
                     "644 share/doc/krv-pre-installer/ARCHITECTURE.md\n"
                     "644 share/doc/krv-pre-installer/LICENSE\n"
                     "644 share/doc/krv-pre-installer/README.md\n"
                     "644 share/doc/krv-pre-installer/docs/signature-format.md\n"
                     "644 share/doc/krv-pre-installer/docs/velta.KRV.xml\n"
                     "644 share/doc/krv-pre-installer/velta.KRV.conf.example\n"
                     "644 share/man/man1/krv-package-signature.1.gz\n"
                     "644 share/man/man5/krv-registry.5.gz\n"
                     "644 share/man/man8/krv-pre-installer.8.gz\n");
}

TEST_F(Installation, HasWhatTheUnitNames) {
  EXPECT_TRUE(fs::exists(installed(valuesInUnit("ExecStart").at(0))));
  EXPECT_EQ(valuesInUnit("Documentation"), std::vector<std::string>{"man:krv-pre-installer(8)"});
  EXPECT_EQ(Support::readFile(unitFile()),
            Support::readFile(installed(KRV_INSTALL_PREFIX) / "lib/systemd/system/krv-pre-installer.service"));
}

TEST_F(Installation, HasThePagesOfTheSource) {
  const fs::path page = installed(KRV_INSTALL_PREFIX) / "share/man/man5/krv-registry.5.gz";
  EXPECT_EQ(Support::runOrThrow({"gzip", "-dc", page.string()}),
            Support::readFile(fs::path(KRV_SOURCE_DIRECTORY) / "docs/man/krv-registry.5"));
}

TEST(SpecFile, HasTheVersionOfTheProject) {
  const std::string spec = Support::readFile(fs::path(KRV_SOURCE_DIRECTORY) / "packaging/krv-pre-installer.spec");
  static const std::regex pattern("\nVersion: *([^\n]*)\n");
  std::smatch version;
  ASSERT_TRUE(std::regex_search(spec, version, pattern));
  EXPECT_EQ(version[1], KRV_VERSION);
}

} // namespace
