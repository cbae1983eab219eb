// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/differential_comparison.h"

#include "acceptance/file_list.h"
#include "common/error/error.h"
#include "common/rpm/archive.h"
#include "common/rpm/file_entry.h"
#include "common/rpm/handles.h"
#include "tests/support/extraction/extract_tree.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <rpm/rpmtag.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iomanip>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <signal.h>
#include <unistd.h>

namespace Differential {

namespace {

using Common::Rpm::ArchiveReader;
using Common::Rpm::Reader;
using std::filesystem::path;

const std::string accepted = "accepted";
const std::string refused = "refused";

/// A changed package has lost some digests; the others must be valid.
const std::string digestsWhereTheyAre = "_pkgverify_level none";

/// The result of `work`; "refused" if it throws an error of the library or of the tree's handlers.
std::string unlessRefused(const std::function<std::string()>& work) {
  try {
    return work();
  } catch (const Common::Error&) {
    return refused;
  } catch (const std::runtime_error&) {
    return refused;
  }
}

/// The output of a program of librpm; "refused" if it fails, with the signal if one ended it.
std::string outputOf(const std::vector<std::string>& command, const path& folder) {
  const Support::ProcessResult result = Support::run(command, {}, folder);
  constexpr int firstSignal = 128;
  if (result.status > firstSignal && result.status < firstSignal + NSIG) // librpm itself uses 254 and 255
    return "ended by signal " + std::to_string(result.status - firstSignal);
  return result.status == 0 ? result.output : refused;
}

std::string verdictOf(const std::string& answer) {
  return answer == refused || answer.starts_with("ended by signal") ? answer : accepted;
}

struct TextTag {
  std::string name;
  rpmTagVal number;
};

/// All tags that have a text in librpm.
std::vector<TextTag> textTags() {
  const Common::Rpm::TagDataHandle names = Common::Rpm::ownTagData(rpmtdNew());
  rpmTagGetNames(names.get(), 0);
  std::vector<TextTag> tags;
  while (const char* name = rpmtdNextString(names.get())) {
    const rpmTagVal number = rpmTagGetValue(name);
    if (rpmTagGetClass(number) == RPM_STRING_CLASS)
      tags.push_back({name, number});
  }
  return tags;
}

constexpr char endOfText = '\x1f';
constexpr char endOfTag = '\x1e';

std::string textsOf(const Reader& reader, rpmTagVal tag) {
  std::string joined;
  for (const std::string& text : reader.texts(static_cast<std::int32_t>(tag)))
    joined += text + endOfText;
  return joined;
}

class Comparison {
public:
  Comparison(const path& package, const path& folder) : m_package(package), m_folder(folder) {}

  Differences run() {
    compareHeader();
    if (m_reader) {
      compareTags();
      compareFiles();
    }
    compareTrees();
    return m_differences;
  }

private:
  void compare(const std::string& question, const Answers& answers) {
    if (answers.ours != answers.theirs)
      m_differences[question] = answers;
  }

  void compareHeader() {
    const std::string ours = unlessRefused([this] {
      m_reader.emplace(m_package.string());
      return accepted;
    });
    compare("header", {ours, verdictOf(outputOf({"rpm", "-qp", m_package.string()}, m_folder))});
  }

  void compareTags() {
    const std::vector<TextTag> tags = textTags();
    std::string format;
    for (const TextTag& tag : tags)
      format += "[%{" + tag.name + "}" + endOfText + "]" + endOfTag;
    const std::string answer = theirTexts(format);
    std::istringstream values(answer);
    for (const TextTag& tag : tags) {
      std::string theirs;
      if (verdictOf(answer) == accepted)
        std::getline(values, theirs, endOfTag);
      else // one tag without a result makes the whole query fail
        theirs = theirTexts("[%{" + tag.name + "}" + endOfText + "]");
      compare("tag " + tag.name, {textsOf(*m_reader, tag.number), theirs});
    }
  }

  std::string theirTexts(const std::string& format) const {
    return outputOf({"rpm", "-qp", "--queryformat", format, m_package.string()}, m_folder);
  }

  void compareFiles() {
    compare("files", {unlessRefused([this] { return ourFiles(); }), theirFiles()});
  }

  std::string ourFiles() const {
    std::ostringstream lines;
    for (const Acceptance::PackagedFile& file : Acceptance::fileList(*m_reader))
      lines << file.name << ' ' << file.size << ' ' << std::oct << static_cast<unsigned>(file.permissions) << std::dec
            << ' ' << file.digest << ' ' << file.target << '\n';
    return lines.str();
  }

  /// After the name: size, modification time, digest, mode, owner, group, two flags, device and target. A missing
  /// digest is zeros, a missing target is X.
  std::string theirFiles() const {
    static const std::regex form("(.*) ([0-9]+) -?[0-9]+ ([0-9a-f]*) 0([0-7]+) \\S+ \\S+ [01] [01] [0-9]+ (.*)");
    const std::string answer = outputOf({"rpm", "-qp", "--dump", m_package.string()}, m_folder);
    if (verdictOf(answer) != accepted)
      return answer;
    std::istringstream lines(answer);
    std::ostringstream files;
    std::smatch parts;
    for (std::string line; std::getline(lines, line);) {
      if (line == "(contains no files)")
        continue;
      if (!std::regex_match(line, parts, form))
        throw std::runtime_error("this is no line of rpm --dump: " + line);
      files << parts[1] << ' ' << parts[2] << ' ' << std::oct << (std::stoul(parts[4], nullptr, 8) & 07777) << std::dec
            << ' ' << parts[3] << ' ' << (parts[5] == "X" ? "" : parts[5].str()) << '\n';
    }
    return files.str();
  }

  void compareTrees() {
    const std::string ours = unlessRefused([this] {
      ArchiveReader archive = ArchiveReader::openForExtraction(m_package.string());
      Support::extractTree(archive, fresh("ours"));
      return Support::listTree(m_folder / "ours");
    });
    const std::string theirs =
        treeAfter({"bash", "-c", "set -o pipefail; rpm2archive -n - < \"$0\" | tar -x -p -C \"$1\"", m_package.string(),
                   fresh("archive").string()},
                  m_folder / "archive");
    compare("tree", {ours, theirs});
    const std::string digests =
        outputOf({"rpm", "-K", "--nosignature", "--define", digestsWhereTheyAre, m_package.string()}, m_folder);
    compare("package", {verdictOf(ours), digests == refused ? refused : verdictOf(theirs)});
    if (geteuid() == 0 && isInstallable())
      compare(installedTree, {ours, theirInstalledTree()});
  }

  bool isInstallable() const {
    return m_reader && headerIsEntry(m_reader->header().get(), RPMTAG_SOURCERPM) != 0 && !hasFifo();
  }

  /// librpm 4.18 waits forever for a writer of the FIFO that it has created.
  bool hasFifo() const {
    const Common::Rpm::FileSetHandle files = m_reader->files();
    for (int index = 0; files && index < static_cast<int>(rpmfilesFC(files.get())); ++index) {
      if (Common::Rpm::typeOf(rpmfilesFMode(files.get(), index)) == std::filesystem::file_type::fifo)
        return true;
    }
    return false;
  }

  std::string theirInstalledTree() const {
    const path root = fresh("root");
    return treeAfter({"rpm", "-i", "--root", root.string(), "--dbpath", "/database of rpm", "--nodeps", "--noscripts",
                      "--ignorearch", "--ignoreos", "--nosignature", "--define", digestsWhereTheyAre,
                      m_package.string()},
                     root);
  }

  path fresh(const std::string& name) const {
    const path folder = m_folder / name;
    std::filesystem::create_directory(folder);
    return folder;
  }

  /// The tree that a command creates, without special files, which extraction skips.
  std::string treeAfter(const std::vector<std::string>& command, const path& tree) const {
    const std::string answer = outputOf(command, m_folder);
    if (verdictOf(answer) != accepted)
      return answer;
    std::filesystem::remove_all(tree / "database of rpm");
    static const std::regex special("[^\n]* special [0-7]+\n");
    return std::regex_replace(Support::listTree(tree), special, "");
  }

  const path m_package;
  const path m_folder;
  std::optional<Reader> m_reader;
  Differences m_differences;
};

} // namespace

Differences compare(const path& package, const path& folder) {
  return Comparison(package, folder).run();
}

} // namespace Differential
