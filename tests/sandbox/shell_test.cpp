// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/script_test.h"
#include "tests/sandbox/text.h"
#include "tests/support/process/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <signal.h>

namespace {

namespace fs = std::filesystem;

class SandboxShell : public ScriptTest {
protected:
  fs::path folder() const { return m_directory / "sand, box"; }

  Support::ProcessResult run(const std::vector<std::string>& arguments, const Support::Environment& more = {}) const {
    Support::Environment all = environment();
    all.insert(more.begin(), more.end());
    return Support::run(script("shell", arguments), all);
  }
};

TEST_F(SandboxShell, RunsACommandWithBusAndServiceAndLeavesNothing) {
  const Support::ProcessResult result =
      run({"--", "sh", "-c",
           "krv-pre-installer; rpm -qa; cat device/opt/notes/about.txt; "
           "dbus-send --system --print-reply=literal --dest=velta.KRV /velta/KRV velta.KRV.Remove string:notes; "
           "rpm -qa; krv-pre-installer; exit 7"});
  const auto begin = result.output.find('"');
  const std::string path = result.output.substr(begin, result.output.find('\n') - begin);
  EXPECT_EQ(replaced(withoutTimes(result.output), path, "PATH"),
            "[I] The package successfully pre-installed: PATH\n"
            "[I] Time spent for pre-installation: N seconds\n"
            "notes-1.0-1.noarch\n"
            "notes 1.0-1\n"
            "[I] The package was manually removed by the user: PATH\n"
            "[I] Skipping package pre-installation: PATH\n"
            "[I] Time spent for pre-installation: N seconds\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 7);
  expectNothingLeft();
}

TEST_F(SandboxShell, RemovesTheFilesThatTheCommandMakesInATemporarySandbox) {
  const Support::ProcessResult result =
      run({"--", "sh", "-c", "cp packages/notes-1.0-1.rpm my.rpm; mkdir own; touch own/file"});
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_EQ(result.status, 0);
  expectNothingLeft();
}

TEST_F(SandboxShell, OpensTheUsersShellWithAShortHelp) {
  const Support::ProcessResult result = run({}, {{"SHELL", "/bin/true"}});
  EXPECT_EQ(result.output,
            "A device with its bus and its service, for as long as this shell lives. For example:\n"
            "  krv-pre-installer\n"
            "  rpm -qa\n"
            "  dbus-send --system --print-reply --dest=velta.KRV /velta/KRV velta.KRV.Remove string:notes\n"
            "  cat device/var/lib/krv/registry run/service.log\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(run({}, {{"SHELL", "/bin/false"}}).status, 1);
  // bash, which reads the end of its input. Without the variable, bash itself sets it to the login shell.
  EXPECT_EQ(run({}, {{"SHELL", ""}}).status, 0);
  expectNothingLeft();
}

TEST_F(SandboxShell, ReusesAGivenFolder) {
  fs::create_directory(folder()); // an empty folder is accepted
  EXPECT_EQ(run({folder(), "--", "krv-pre-installer"}).status, 0);
  const Support::ProcessResult again = run({folder(), "--", "rpm", "-qa"});
  EXPECT_EQ(again.output, "notes-1.0-1.noarch\n");
  EXPECT_EQ(again.errors, "");
  std::vector<std::string> kept;
  for (const auto& entry : fs::directory_iterator(folder()))
    kept.push_back(entry.path().filename());
  std::sort(kept.begin(), kept.end());
  EXPECT_EQ(kept, (std::vector<std::string>{"device", "home", "packages", "pki"}));
  expectNothingLeft();
}

TEST_F(SandboxShell, RefusesAFolderThatIsInUse) {
  const Support::ProcessResult result =
      run({folder(), "--", KRV_SOURCE_DIRECTORY "/sandbox/shell", KRV_BINARY_DIRECTORY, ".", "--", "true"});
  EXPECT_EQ(result.errors, "shell: " + folder().string() + " is in use (if not, a process was killed there: remove " +
                               folder().string() + "/run)\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(SandboxShell, RefusesAFolderThatIsNotASandbox) {
  Support::writeFile(folder() / "run/precious", "content");
  const Support::ProcessResult result = run({folder()});
  EXPECT_EQ(result.errors, "shell: " + folder().string() + " is neither empty nor a sandbox\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(Support::readFile(folder() / "run/precious"), "content");
}

/// The terminal sends SIGINT for Ctrl-C to all processes; only the command should end.
TEST_F(SandboxShell, LeavesCtrlCToTheCommand) {
  EXPECT_EQ(run({"--", "sh", "-c", "kill -INT $PPID; echo goes on"}).output, "goes on\n");
  const Support::ProcessResult result = run({"--", "sh", "-c", "kill -INT $$; echo goes on"});
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.status, 128 + SIGINT);
  expectNothingLeft();
}

class InterruptedShell : public SandboxShell, public testing::WithParamInterface<int> {};

TEST_P(InterruptedShell, EndsTheCommandAndAllOtherProcesses) {
  for (const std::vector<std::string>& place : {std::vector<std::string>{}, {folder()}}) {
    std::vector<std::string> arguments = place;
    arguments.insert(arguments.end(), {"--", "sh", "-c", "echo here; exec sleep 1000"});
    signal(GetParam(), SIG_DFL); // a shell cannot trap signals that its parent ignores
    Support::Process shell(script("shell", arguments), environment());
    ASSERT_TRUE(Support::waitUntil([&] { return shell.outputSoFar() == "here\n"; }));
    shell.signal(GetParam());
    EXPECT_EQ(shell.wait().status, 128 + GetParam());
    EXPECT_TRUE(Support::waitUntil([&] { return processes().empty(); })); // the script does not wait for it
    expectNothingLeft();
  }
  EXPECT_TRUE(fs::exists(folder() / "device"));
  EXPECT_FALSE(fs::exists(folder() / "run"));
}

INSTANTIATE_TEST_SUITE_P(BySignal, InterruptedShell, testing::Values(SIGTERM, SIGHUP));

TEST(SandboxShellUsage, IsPrinted) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {}, {KRV_BINARY_DIRECTORY, "a", "b"}, {KRV_BINARY_DIRECTORY, "--"}, {KRV_BINARY_DIRECTORY, "a", "--"}}) {
    std::vector<std::string> command{KRV_SOURCE_DIRECTORY "/sandbox/shell"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Support::ProcessResult result = Support::run(command);
    EXPECT_EQ(result.errors, "usage: shell BIN-DIR [DIR] [-- COMMAND...]\n");
    EXPECT_EQ(result.status, 2);
  }
}

} // namespace
