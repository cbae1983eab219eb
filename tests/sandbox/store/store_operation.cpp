// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store/store_operation.h"

#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/process/process.h"

#include <regex>
#include <set>

namespace StoreTest {

namespace fs = std::filesystem;
using Support::PackageInput;

namespace {

/// Two versions that differ in everything that an update can meet, and another package with a file in common.
const PackageInput firstVersion = {
    .name = "app",
    .install = "mkdir -p %{buildroot}/opt/app/gone %{buildroot}/opt/common; cd %{buildroot}/opt\n"
               "echo 1 >app/changed; echo 1 >app/dropped; echo 1 >app/gone/file; echo 1 >app/one; ln app/one app/two\n"
               "ln -s changed app/link; echo shared >common/shared; ln -s dropped app/old-link",
    .files = "/opt/app\n/opt/common"};
const PackageInput secondVersion = {
    .name = "app",
    .version = "2.0",
    .install =
        "mkdir -p %{buildroot}/opt/app/fresh %{buildroot}/opt/common; cd %{buildroot}/opt\n"
        "echo 2 >app/changed; echo 2 >app/fresh/file; echo 2 >app/one; ln app/one app/two; ln app/one app/three\n"
        "ln -s fresh/file app/link; echo shared >common/shared; chmod 700 app/fresh; chmod 750 app",
    .files = "/opt/app\n/opt/common"};
const PackageInput other = {.name = "other",
                            .install = "mkdir -p %{buildroot}/opt/common; cd %{buildroot}/opt/common\n"
                                       "echo shared >shared; echo own >own",
                            .files = "/opt/common"};

/// The calls of the C library that change what is on the disk, or wait for that.
const std::set<std::string> changingCalls = {
    "chmod",   "copy_file_range", "fallocate", "fchmod",   "fchmodat", "fchown",   "ftruncate", "link",
    "linkat",  "mkdir",           "mkdirat",   "pwrite64", "rename",   "renameat", "renameat2", "rmdir",
    "symlink", "symlinkat",       "syncfs",    "truncate", "unlink",   "unlinkat", "write",     "writev"};

/// librpm does not give back what it had when its database fails.
const Support::Environment withoutLeakCheck = {{"ASAN_OPTIONS", "detect_leaks=0"}};

} // namespace

std::string nameOf(Operation operation) {
  return operation == Operation::Installation ? "Installation" : operation == Operation::Update ? "Update" : "Removal";
}

void OperationFixture::prepare(Operation operation) {
  {
    const Support::CapturedLog log;
    install(other);
    if (operation != Operation::Installation)
      install(firstVersion);
    closeStore();
  }
  if (operation == Operation::Removal)
    m_command = {Support::program("store_tool"), "remove", "app"};
  else
    m_command = {Support::program("store_tool"), "install",
                 package(operation == Operation::Update ? secondVersion : firstVersion)};
  fs::rename(root(), m_template);
  restore();
  m_before = comparableState();
  const auto undisturbed = run();
  ASSERT_EQ(undisturbed.process.status, 0) << undisturbed.process.errors;
  ASSERT_EQ(undisturbed.unknownCalls, std::set<long>());
  m_calls = undisturbed.calls;
  m_after = comparableState();
  ASSERT_NE(m_before, m_after);
  ASSERT_EQ(m_after.find("a transaction"), std::string::npos);
}

void OperationFixture::restore() {
  Support::runOrThrow({"rm", "-rf", root().string()});
  Support::runOrThrow({"cp", "-a", m_template.string(), root().string()});
}

Support::SupervisedResult OperationFixture::run(const std::optional<Support::Fault>& fault,
                                                const Support::BeforeCall& beforeCall,
                                                const Support::Environment& environment) const {
  Support::Environment all = environment;
  all.merge(Support::Environment(withoutLeakCheck));
  return Support::runSupervised(m_command, all, m_rpm.path(), fault, beforeCall);
}

Support::SupervisedResult OperationFixture::open(const std::optional<Support::Fault>& fault) const {
  return Support::runSupervised({Support::program("store_tool"), "open"}, withoutLeakCheck, m_rpm.path(), fault);
}

bool OperationFixture::isChange(const Support::SeenCall& call) const {
  return changingCalls.contains(call.name) && call.path.starts_with(root().string());
}

std::string OperationFixture::comparableState() const {
  const std::string text = std::regex_replace(state(), std::regex("timestamp=[0-9]+"), "T");
  return std::regex_replace(text, std::regex("\"Installtime\">\\s*<integer>[0-9]+"), "\"Installtime\">T");
}

} // namespace StoreTest
