// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/rpm_database.h"
#include "tests/support/packages/rpm_sandbox.h"

#include <gtest/gtest.h>
#include <rpm/rpmmacro.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

namespace {

// librpm expands macros in the path once more.
TEST(RpmDatabase, KeepsPercentSignsInItsFolder) {
  const Support::RpmSandbox sandbox;
  for (const char* name : {"100%", "%{name}", "%%_dbpath", "%(echo x)"}) {
    const std::filesystem::path folder = sandbox.path() / name;
    Sandbox::setDatabaseFolder(folder);
    const std::unique_ptr<char, decltype(&std::free)> path(rpmExpand("%{_dbpath}", nullptr), &std::free);
    EXPECT_EQ(path.get(), folder.string());
    rpmPopMacro(nullptr, "_dbpath");
  }
}

} // namespace
