// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/files/special_files.h"
#include "tests/tools/krv-package-signature/tool_fixture.h"

#include <rpmsign-external/signing.h>

#include <cstring>
#include <fstream>

namespace {

using Support::Pki;
using Support::ProcessResult;

/// Signs with keys that have pass phrases.
class PassPhrase : public PackageSignatureTool {
protected:
  std::string lockedKey(const std::string& name) const { return folder() / (name + ".locked.pem"); }

  void lock(const std::string& name, const std::string& passPhrase) const {
    Support::runOrThrow({"openssl", "pkcs8", "-topk8", "-in", Pki::instance().key(name), "-out", lockedKey(name),
                         "-passout", "pass:" + passPhrase});
  }

  std::vector<std::string> signing(const std::vector<std::string>& rest) const {
    std::vector<std::string> arguments = {
        Support::program("krv-package-signature"), "sign", "--key", lockedKey("alice-2"), "--cert",
        Pki::instance().certificate("alice-2"),    "a.rpm"};
    arguments.insert(arguments.end(), rest.begin(), rest.end());
    return arguments;
  }

  /// Signs with the keys of "alice-2" and, as the earlier key, "alice", both locked.
  std::vector<std::string> signingAfterRotation(const std::vector<std::string>& rest) const {
    std::vector<std::string> arguments = signing(rest);
    arguments.insert(arguments.end(),
                     {"--previous", lockedKey("alice") + "," + Pki::instance().certificate("alice").string()});
    return arguments;
  }

  ProcessResult run(const std::vector<std::string>& arguments) const { return Support::run(arguments, {}, folder()); }

  std::string passPhraseFile(const std::string& content) const {
    Support::writeFile(folder() / "pass", content);
    return folder() / "pass";
  }

  void expectSigned() const { expectResult(verifyTool({"a.rpm"}), 0, "a.rpm: OK\n", ""); }
};

TEST_F(PassPhrase, IsAskedForOnTheTerminalWithoutEcho) {
  lock("alice-2", "correct horse");
  Terminal terminal;
  Support::Process process(signing({}), {}, folder(), [&] { terminal.control(); });
  terminal.answer("Pass phrase of " + lockedKey("alice-2") + ": ", "correct horse");
  expectResult(process.wait(), 0, "", "");
  EXPECT_EQ(terminal.text(), "\r\n");
  expectSigned();
}

TEST_F(PassPhrase, IsAskedForOncePerKey) {
  lock("alice", "one");
  lock("alice-2", "two");
  std::filesystem::copy_file(folder() / "a.rpm", folder() / "b.rpm");
  Terminal terminal;
  Support::Process process(signingAfterRotation({"b.rpm"}), {}, folder(), [&] { terminal.control(); });
  terminal.answer("Pass phrase of " + lockedKey("alice-2") + ": ", "two");
  terminal.answer("Pass phrase of " + lockedKey("alice") + ": ", "one");
  expectResult(process.wait(), 0, "", "");
  expectResult(verifyTool({"a.rpm", "b.rpm"}), 0, "a.rpm: OK\nb.rpm: OK\n", "");
}

TEST_F(PassPhrase, IsRefusedOnTheTerminal) {
  lock("alice-2", "correct horse");
  const std::pair<std::string, std::string> cases[] = {
      {"battery", " cannot be read with this pass phrase\n"},
      {"", " needs a pass phrase, and none was entered\n"},
  };
  for (const auto& [answer, error] : cases) {
    Terminal terminal;
    Support::Process process(signing({}), {}, folder(), [&] { terminal.control(); });
    terminal.answer("Pass phrase of " + lockedKey("alice-2") + ": ", answer);
    expectResult(process.wait(), 1, "", tool + lockedKey("alice-2") + error);
  }
}

TEST_F(PassPhrase, IsNotReadFromStandardInput) {
  lock("alice-2", "correct horse");
  Support::Process process(signing({}), {}, folder(), [] { setsid(); });
  expectResult(process.wait(), 1, "",
               tool + lockedKey("alice-2") + " needs a pass phrase, and there is no terminal to ask for it\n");
}

TEST_F(PassPhrase, IsReadFromAFile) {
  lock("alice-2", "correct horse");
  for (const std::string end : {"", "\n", "\nmore\n"}) {
    const std::string before = package();
    expectResult(run(signing({"--passphrase-file", passPhraseFile("correct horse" + end)})), 0, "", "");
    expectSigned();
    Support::writeFile(folder() / "a.rpm", before);
  }
}

TEST_F(PassPhrase, IsReadFromAFileForEachLockedKeyInOrder) {
  lock("alice", "one");
  lock("alice-2", "two");
  expectResult(run(signingAfterRotation({"--passphrase-file", passPhraseFile("two\none\n")})), 0, "", "");
  expectSigned();
  expectResult(run(signingAfterRotation({"--passphrase-file", passPhraseFile("one\ntwo\n")})), 1, "",
               tool + lockedKey("alice-2") + " cannot be read with this pass phrase\n");
  expectResult(run(signingAfterRotation({"--passphrase-file", passPhraseFile("two\n")})), 1, "",
               tool + lockedKey("alice") +
                   " needs a pass phrase, and the file of pass phrases has no usable line for it\n");
}

TEST_F(PassPhrase, IsNotNeededForAnOpenKey) {
  expectResult(signAs("alice", {"--passphrase-file", passPhraseFile("unused"), "a.rpm"}), 0, "", "");
  expectSigned();
}

TEST_F(PassPhrase, IsReadFromAPipe) {
  lock("alice-2", "correct horse");
  const std::string script = "\"$0\" \"$@\" --passphrase-file <(echo 'correct horse')";
  std::vector<std::string> command = {"bash", "-c", script};
  for (const std::string& argument : signing({}))
    command.push_back(argument);
  expectResult(run(command), 0, "", "");
  expectSigned();
}

TEST_F(PassPhrase, IsNotReadFromAFileThatCannotBeUsed) {
  lock("alice-2", "correct horse");
  const std::string start = tool + lockedKey("alice-2") + " needs a pass phrase, and ";
  const std::string file = folder() / "pass";
  expectResult(run(signing({"--passphrase-file", file})), 1, "",
               tool + "the file of pass phrases " + file + " cannot be read: No such file or directory\n");
  expectResult(run(signing({"--passphrase-file", folder()})), 1, "",
               tool + "the file of pass phrases " + folder().string() + " cannot be read: Is a directory\n");
  for (const std::string& content : {std::string(), std::string("\ncorrect horse\n"), std::string(2000, 'x')})
    expectResult(run(signing({"--passphrase-file", passPhraseFile(content)})), 1, "",
                 start + "the file of pass phrases has no usable line for it\n");
  expectResult(run(signing({"--passphrase-file", passPhraseFile(std::string(16 * 1024, 'x'))})), 1, "",
               tool + "the file of pass phrases " + file + " is too long\n");
}

/// The writable parts of this process's memory. Found before the test, because reading the list would use, and so
/// overwrite, freed memory.
std::vector<std::pair<off_t, off_t>> writableMemory() {
  std::vector<std::pair<off_t, off_t>> ranges;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(" rw") == std::string::npos)
      continue;
    const auto begin = static_cast<off_t>(std::stoull(line, nullptr, 16));
    ranges.emplace_back(begin, static_cast<off_t>(std::stoull(line.substr(line.find('-') + 1), nullptr, 16)));
  }
  return ranges;
}

/// Whether the memory contains the bytes whose inversions are `inverted`, so that the needle itself is not found.
/// Allocates nothing, for the same reason.
bool memoryContains(const std::vector<std::pair<off_t, off_t>>& ranges, const std::string& inverted) {
  static char block[64 * 1024];
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  bool found = false;
  for (const auto& [begin, end] : ranges) {
    const auto step = static_cast<off_t>(sizeof block - inverted.size()); // the blocks overlap
    for (off_t place = begin; place < end && !found; place += step) {
      const auto size = std::min<std::size_t>(sizeof block, static_cast<std::size_t>(end - place));
      const ssize_t count = pread(memory, block, size, place);
      const auto isInverted = [](char a, char b) { return a == static_cast<char>(~b); };
      char* const last = block + std::max<ssize_t>(count, 0);
      found = std::search(block, last, inverted.begin(), inverted.end(), isInverted) != last;
    }
  }
  close(memory);
  explicit_bzero(block, sizeof block);
  return found;
}

/// The content of a file, each byte inverted; the file's own bytes never lie side by side in memory.
std::string readInverted(const std::filesystem::path& path) {
  std::string inverted;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  for (char byte = 0; read(file, &byte, 1) == 1;)
    inverted += static_cast<char>(~byte);
  close(file);
  return inverted;
}

TEST_F(PassPhrase, IsCleanedFromMemory) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer maps terabytes of memory, which cannot be searched";
#endif
  const std::string file = folder() / "pass";
  Support::runOrThrow({"bash", "-c", "printf %s \"$(openssl rand -hex 24)\" >\"$0\"", file});
  Support::runOrThrow({"openssl", "pkcs8", "-topk8", "-in", Pki::instance().key("alice"), "-out", lockedKey("alice"),
                       "-passout", "file:" + file});
  // The second half: free() may overwrite the beginning.
  const std::string inverted = readInverted(file).substr(24);
  ASSERT_EQ(inverted.size(), 24U);
  bool isFoundMeanwhile = false;
  bool isFoundAfterwards = false;
  std::vector<std::pair<off_t, off_t>> ranges;
  const std::string key = lockedKey("alice");
  const std::string certificate = Pki::instance().certificate("alice");
  {
    const auto passPhrases = PackageSignatures::PassPhrases::fromFile(file);
    PackageSignatures::SigningKey::load(key, certificate, passPhrases);
    ranges = writableMemory();
    isFoundMeanwhile = memoryContains(ranges, inverted);
  }
  isFoundAfterwards = memoryContains(ranges, inverted);
  EXPECT_TRUE(isFoundMeanwhile) << "the search does not work";
  EXPECT_FALSE(isFoundAfterwards);
}

} // namespace
