// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/faults/supervised.h"
#include "tests/tools/krv-image-check/test_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <set>

#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using ImageCheckTest::Lines;
using ImageCheckTest::TestImage;
using Support::ProcessResult;
using Support::writeFile;

const std::string tool = "krv-image-check: ";

void expectResult(const ProcessResult& result, int status, const std::string& output, const std::string& errors) {
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.output, output);
  EXPECT_EQ(result.errors, errors);
}

class ImageCheckProgram : public testing::Test {
protected:
  TestImage image;
};

TEST_F(ImageCheckProgram, PrintsFindingsThePlanAndTheCounts) {
  image.add({.name = "maps", .preamble = "Epoch: 1"});
  image.add({.name = "mail"}, "");
  image.copy("old");
  image.add({.name = "maps", .version = "2.0", .preamble = "Epoch: 1"});
  expectResult(image.run({"--previous", "old"}), 1,
               "mail.rpm: error: unsigned: the package has no signature\n"
               "maps.rpm: warning: epoch-ignored: the version is 1:2.0-1\n"
               "\n"
               "ENTRY      first-boot              update:old\n"
               "mail.rpm   unreadable              unreadable\n"
               "maps.rpm   install (NotInstalled)  update (Update)\n"
               "notes.rpm  install (NotInstalled)  skip (NotNewer)\n"
               "\n"
               "3 packages: 1 error, 1 warning, 0 notes; not checked: space-exceeded (--space is not given); "
               "payload-damaged (--deep is not given)\n",
               "");
}

TEST_F(ImageCheckProgram, HasAStatusForTheSeverity) {
  image.add({.name = "maps", .preamble = "Epoch: 1"});
  EXPECT_EQ(image.run().status, 0);
  EXPECT_EQ(image.run({"--fail-on", "warning"}).status, 1);
  EXPECT_EQ(image.run({"--fail-on", "note"}).status, 1);
  for (const char* format : {"text", "json", "sarif", "html"})
    EXPECT_EQ(image.run({"--fail-on", "warning", "--format", format}).status, 1) << format;
}

TEST_F(ImageCheckProgram, MarksWaivedFindings) {
  image.add({.name = "maps", .preamble = "Epoch: 1"});
  writeFile(image.outside() / "waivers",
            "# known\n\n"
            "  epoch-ignored  m*.rpm  until=2099-01-01  reason=the epoch  never changes\n");
  const std::vector<std::string> options = {"--fail-on", "warning", "--waivers", "waivers"};
  EXPECT_EQ(image.run(options).status, 0);
  EXPECT_EQ(image.findings(options), Lines{"maps.rpm: waived warning: epoch-ignored: the version is 1:1.0-1 (waived: "
                                           "the epoch  never changes)"});
}

TEST_F(ImageCheckProgram, WaivesFindingsOfTheImage) {
  fs::remove_all(image / "usr/share/dbus-1");
  writeFile(image.outside() / "waivers", "bus-policy-missing image until=2099-01-01 reason=x\n"
                                         "service-not-activatable * until=2099-01-01 reason=x\n");
  EXPECT_EQ(image.run({"--fail-on", "warning", "--waivers", "waivers"}).status, 0);
}

TEST_F(ImageCheckProgram, RefusesABadLineOfTheWaivers) {
  const struct {
    std::string line;
    std::string reason;
  } cases[] = {
      {"epoch-ignored", "expected ID ENTRY-PATTERN until=YYYY-MM-DD reason=TEXT"},
      {"epoch-ignored * until=2027-01-01", "expected ID ENTRY-PATTERN until=YYYY-MM-DD reason=TEXT"},
      {"epoch-ignored * until=2027-01-01 reason=", "expected ID ENTRY-PATTERN until=YYYY-MM-DD reason=TEXT"},
      {"epoch-ignored * reason=x until=2027-01-01", "expected ID ENTRY-PATTERN until=YYYY-MM-DD reason=TEXT"},
      {"epoch-ignored * until=2027-02-30 reason=x", "until is not a day as YYYY-MM-DD"},
      {"epoch-ignored * until=tomorrow reason=x", "until is not a day as YYYY-MM-DD"},
      {"epoch-forgotten * until=2027-01-01 reason=x", "unknown id epoch-forgotten"},
  };
  for (const auto& [line, reason] : cases) {
    writeFile(image.outside() / "waivers", "# a comment\n" + line + "\n");
    expectResult(image.run({"--waivers", "waivers"}), 2, "", tool + "waivers:2: " + reason + "\n");
  }
  expectResult(image.run({"--waivers", "missing"}), 2, "", tool + "missing cannot be read\n");
}

TEST_F(ImageCheckProgram, RefusesWrongUsage) {
  const struct {
    std::vector<std::string> options;
    std::string message;
  } cases[] = {
      {{"--at", "2027-02-30"}, "--at: expected a day as YYYY-MM-DD, not 2027-02-30"},
      {{"--at", "27-02-03"}, "--at: expected a day as YYYY-MM-DD, not 27-02-03"},
      {{"--explain", "nothing"}, "--explain: unknown id nothing"},
      {{"second"}, "The following argument was not expected: second"},
  };
  for (const auto& [options, message] : cases)
    expectResult(image.run(options), 2, "", tool + message + "\nTry: krv-image-check --help\n");
  expectResult(Support::run({Support::program("krv-image-check")}), 2, "",
               tool + "IMAGE is required\nTry: krv-image-check --help\n");
  for (const std::vector<std::string>& options : {std::vector<std::string>{"--format", "xml"},
                                                  {"--fail-on", "info"},
                                                  {"--jobs", "0"},
                                                  {"--jobs", "-1"},
                                                  {"--space", "much"},
                                                  {"--expiry-margin", "-1"}}) {
    const ProcessResult result = image.run(options);
    EXPECT_EQ(result.status, 2) << options[0] << options[1];
    EXPECT_EQ(result.output, "");
  }
  expectResult(image.run({"--arch", "pdp11"}), 2, "", tool + "RPM does not know the architecture pdp11\n");
}

TEST_F(ImageCheckProgram, SaysThatAnImageCannotBeChecked) {
  const auto check = [&](const std::string& path) {
    return Support::run({Support::program("krv-image-check"), path}, {}, image.outside());
  };
  expectResult(check("missing"), 2, "", tool + "missing: No such file or directory\n");
  writeFile(image.outside() / "file", "");
  expectResult(check("file"), 2, "", tool + "file: Not a directory\n");
  expectResult(image.run({"--previous", "missing"}), 2, "", tool + "missing: No such file or directory\n");
  expectResult(image.run({"--device", "missing"}), 2, "", tool + "missing: No such file or directory\n");
  expectResult(image.run({"--output", "missing/report"}), 2, "", tool + "missing/report cannot be written\n");
  expectResult(Support::run({"bash", "-c", "exec \"$0\" image >/dev/full", Support::program("krv-image-check")}, {},
                            image.outside()),
               2, "", tool + "standard output cannot be written\n");
}

TEST_F(ImageCheckProgram, WritesAFile) {
  const ProcessResult onOutput = image.run();
  expectResult(image.run({"--output", "report"}), 0, "", "");
  EXPECT_EQ(Support::readFile(image.outside() / "report"), onOutput.output);
}

TEST_F(ImageCheckProgram, ExplainsAFinding) {
  expectResult(Support::run({Support::program("krv-image-check"), "--explain", "entry-dangling-link"}), 0,
               "entry-dangling-link (error, cannot be waived)\n"
               "  The target of the symlink does not exist\n"
               "  On the device: The whole listing fails. The tool ends with status 1 and\n"
               "                 installs nothing, also none of the other packages.\n"
               "  What to do:    Remove the symlink, or add its target to the image.\n",
               "");
}

TEST_F(ImageCheckProgram, SaysTheSameWithAnyNumberOfJobs) {
  for (const char* name : {"maps", "mail", "music"})
    fs::copy_file(image.entry("notes.rpm"), image.entry(std::string(name) + ".rpm"));
  ImageCheckTest::flipByte(image.entry("mail.rpm"), 10);
  const ProcessResult one = image.run({"--format", "json", "--jobs", "1", "--at", "2027-01-01"});
  for (const char* jobs : {"2", "4", "100"})
    EXPECT_EQ(image.run({"--format", "json", "--jobs", jobs, "--at", "2027-01-01"}).output, one.output);
}

TEST_F(ImageCheckProgram, EscapesHostileNames) {
  const std::string name = "\033]0;x\a\xff\n\xe2\x80\xae.rpm";
  fs::rename(image.entry("notes.rpm"), image.entry(name));
  const std::string escaped = "\\x1b]0;x\\x07\\xff\\x0a\\xe2\\x80\\xae.rpm";
  const ProcessResult text = image.run();
  EXPECT_EQ(text.output.substr(0, text.output.find('\n')),
            escaped + ": warning: entry-name-unprintable: its name is " + escaped);
  EXPECT_TRUE(std::ranges::all_of(text.output, [](char byte) { return (byte >= ' ' && byte < 0x7f) || byte == '\n'; }))
      << text.output;
  const auto report = nlohmann::json::parse(image.run({"--format", "json"}).output);
  EXPECT_EQ(report["packages"][0]["entry"], escaped);
  EXPECT_EQ(report["packages"][0]["entry_hex"], "1b5d303b7807ff0ae280ae2e72706d");
}

TEST_F(ImageCheckProgram, LeavesNoTemporaryFiles) {
  fs::create_directory(image.outside() / "tmp");
  const Support::Environment environment = {{"TMPDIR", image.outside() / "tmp"}};
  EXPECT_EQ(image.run({"--deep", "--previous", "image"}, environment).status, 0);
  EXPECT_TRUE(fs::is_empty(image.outside() / "tmp"));
}

TEST_F(ImageCheckProgram, ReadsAFrozenDevice) {
  fs::create_directories(image.outside() / "device/var/lib/krv");
  fs::copy(image / "var/lib/rpm", image.outside() / "device/var/lib/rpm");
  expectResult(image.run({"--device", "device"}), 0,
               "ENTRY      first-boot              device\n"
               "notes.rpm  install (NotInstalled)  install (NotInstalled)\n"
               "\n"
               "1 package: 0 errors, 0 warnings, 0 notes; not checked: space-exceeded (--space is not given); "
               "payload-damaged (--deep is not given)\n",
               "");
}

/// A terminal for the program's standard output and error.
class Terminal {
public:
  Terminal() {
    if (openpty(&m_master, &m_slave, nullptr, nullptr, nullptr) != 0)
      throw std::runtime_error("openpty");
    fcntl(m_master, F_SETFL, O_NONBLOCK);
  }
  ~Terminal() {
    close(m_master);
    close(m_slave);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void attach(int stream) const { dup2(m_slave, stream); }

  std::string text() const {
    char bytes[10000];
    const ssize_t size = read(m_master, bytes, sizeof bytes);
    return {bytes, size < 0 ? 0 : static_cast<std::size_t>(size)};
  }

private:
  int m_master = -1;
  int m_slave = -1;
};

std::string onTerminal(const TestImage& image, int stream, const Support::Environment& environment = {}) {
  const Terminal terminal;
  Support::Process process({Support::program("krv-image-check"), "image"}, environment, image.outside(),
                           [&] { terminal.attach(stream); });
  EXPECT_EQ(process.wait().status, 1);
  return terminal.text();
}

TEST_F(ImageCheckProgram, PaintsOnATerminalUnlessItMustNot) {
  image.add({.name = "maps"}, "");
  const std::string painted = onTerminal(image, STDOUT_FILENO, {{"NO_COLOR", std::nullopt}});
  EXPECT_EQ(painted.substr(0, painted.find('\r')),
            "maps.rpm: \033[31merror\033[0m: unsigned: the package has no signature");
  const std::string plain = onTerminal(image, STDOUT_FILENO, {{"NO_COLOR", "1"}});
  EXPECT_EQ(plain.substr(0, plain.find('\r')), "maps.rpm: error: unsigned: the package has no signature");
}

TEST_F(ImageCheckProgram, ShowsItsProgressOnATerminal) {
  image.add({.name = "maps"}, "");
  EXPECT_EQ(onTerminal(image, STDERR_FILENO), "\r\033[Kchecking 1 of 2\r\033[Kchecking 2 of 2\r\033[K");
}

TEST_F(ImageCheckProgram, JudgesDamagedPackagesWithoutDying) {
  const std::string whole = Support::readFile(image.entry("notes.rpm"));
  for (std::size_t place = 0; place < whole.size(); place += whole.size() / 300 + 1) {
    std::string damaged = whole;
    damaged[place] = static_cast<char>(damaged[place] + 1 + static_cast<char>(place % 7));
    writeFile(image.entry("flipped-" + std::to_string(place) + ".rpm"), damaged);
    writeFile(image.entry("cut-" + std::to_string(place) + ".rpm"), whole.substr(0, place));
  }
  const ProcessResult result = image.run({"--format", "json", "--deep"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "");
  ImageCheckTest::validate(result.output);
  EXPECT_EQ(result.output.find("ends the process"), std::string::npos) << result.output;
}

/// The build machine must not decide.
class HermeticCheck : public ImageCheckProgram {
protected:
  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
  }
};

TEST_F(HermeticCheck, OpensOnlyTheImageItsCopyAndTheLibraries) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer opens files too";
#endif
  fs::create_directory(image.outside() / "tmp");
  const Support::SupervisedResult result =
      Support::runSupervised({Support::program("krv-image-check"), image.root(), "--deep", "--jobs", "1"},
                             {{"TMPDIR", image.outside() / "tmp"}}, "/");
  EXPECT_EQ(result.process.status, 0) << result.process.output << result.process.errors;
  const std::vector<std::string> allowed = {image.root(),
                                            image.outside() / "tmp/",
                                            Support::program("krv-image-check").parent_path(),
                                            "/usr/lib/rpm/",
                                            "/etc/rpm/platform",
                                            "/lib/",
                                            "/usr/lib/",
                                            "/lib64/",
                                            "/etc/ld.so",
                                            "/etc/gcrypt/",
                                            "/usr/share/locale/", // the C library looks for messages
                                            "/etc/localtime",     // the C library reads it even for UTC
                                            "/proc/",
                                            "/sys/devices/system/cpu",
                                            "/dev/null",
                                            "/dev/urandom"};
  std::set<std::string> others;
  for (const Support::SeenCall& call : result.calls)
    if (call.name.starts_with("open") &&
        std::ranges::none_of(allowed, [&](const std::string& path) { return call.path.starts_with(path); }))
      others.insert(call.path);
  EXPECT_EQ(others, std::set<std::string>());
}

TEST_F(HermeticCheck, RemovesItsTemporaryFilesWhenItIsInterrupted) {
  const fs::path temporary = image.outside() / "tmp";
  fs::create_directory(temporary);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const auto interrupt = [&](const Support::SeenCall& seen) { return kill(seen.process, signal); };
    const Support::SupervisedResult result = Support::runSupervised(
        {"env", "--default-signal=INT,HUP,TERM", Support::program("krv-image-check"), image.root()},
        {{"TMPDIR", temporary}}, image.root(), {}, Support::beforeNth("open", 1, "*/notes.rpm", interrupt));
    EXPECT_EQ(result.process.status, 128 + signal);
    EXPECT_EQ(result.process.output, "");
    EXPECT_TRUE(fs::is_empty(temporary));
  }
}

TEST_F(ImageCheckProgram, IgnoresTheSettingsOfTheMachine) {
  const ProcessResult before = image.run({"--format", "json"});
  writeFile(image.rpm().home() / ".rpmmacros", "%_dbpath /nonexistent\n%_pkgverify_level all\n%_vsflags 0\n");
  writeFile(image.outside() / "openssl.cnf",
            "openssl_conf = x\n[x]\nssl_conf = missing\nalg_section = y\n[y]\nfips = 2\n");
  expectResult(image.run({"--format", "json"}, {{"OPENSSL_CONF", image.outside() / "openssl.cnf"},
                                                {"SSL_CERT_DIR", "/nonexistent"},
                                                {"KRV_ROOT_FS", "/nonexistent"},
                                                {"LANG", "tr_TR.UTF-8"}}),
               0, before.output, "");
}

} // namespace
