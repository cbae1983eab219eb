// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/random_history.h"

#include "tests/tools/krv-image-check/described_entry.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace ImageCheckTest {

namespace {

const std::vector<std::string> names = {"aaaa", "bbbb", "cccc"};

const std::vector<Signing> signings = {{"alice"},
                                       {"alice"},
                                       {"alice-2", {"alice"}},
                                       {"alice-2"},
                                       {"alice-3", {"alice", "alice-2"}},
                                       {"alice-3", {"alice-2"}},
                                       {"bob"},
                                       {"foreign"},
                                       {"expired"},
                                       {"source"}};

const std::vector<Flaw> flaws = {
    Flaw::Rebuilt,          Flaw::Rebuilt,  Flaw::ForeignArchitecture, Flaw::BadName,   Flaw::BadVersion,
    Flaw::InstallationTags, Flaw::Unsigned, Flaw::LongerThanPromised,  Flaw::Truncated, Flaw::DamagedPayload,
    Flaw::NoPackage};

std::string textOf(const std::string& entry, const Choice& choice) {
  std::ostringstream text;
  text << "  " << entry << ": " << choice.name << " " << choice.epoch << ":" << choice.version << "-" << choice.release
       << " by " << choice.signing.developer << " after";
  for (const std::string& previous : choice.signing.previous)
    text << " " << previous;
  text << ", content " << static_cast<int>(choice.content) << ", flaw " << static_cast<int>(choice.flaw) << "\n";
  return text.str();
}

} // namespace

std::uint64_t numberFromEnvironment(const char* variable, std::uint64_t otherwise) {
  const char* const value = std::getenv(variable);
  return value == nullptr ? otherwise : std::stoull(value);
}

std::uint64_t historySeed() {
  return numberFromEnvironment("KRV_HISTORY_SEED", std::random_device()());
}

Choice RandomHistories::choice() {
  Choice choice{.name = oneOf(names), .signing = oneOf(signings)};
  if (below(3) == 0)
    choice.content = static_cast<Content>(below(9));
  choice.epoch = below(6) == 0 ? 1 : 0;
  choice.version = oneOf<std::string>({"1.0", "1.0", "1.1", "2.0"});
  choice.release = oneOf<std::string>({"1", "1", "2"});
  if (below(5) == 0)
    choice.flaw = oneOf(flaws);
  return choice;
}

RandomImage RandomHistories::image() {
  RandomImage image;
  const std::size_t count = 1 + below(5);
  while (image.files.size() < count) {
    const std::string name = "entry-" + std::to_string(below(100)) + ".rpm";
    if (image.files.contains(name))
      continue;
    const Choice chosen = choice();
    const std::filesystem::path path = m_pool.package(chosen);
    image.files[name] = path;
    auto described = m_described.find(path);
    if (described == m_described.end())
      described = m_described.emplace(path, describedEntry(name, path)).first;
    ImageCheck::Entry entry = described->second;
    entry.name = name;
    if (entry.package)
      entry.package->entry = name;
    image.entries.push_back(std::move(entry));
    image.text += textOf(name, chosen);
  }
  std::ranges::sort(image.entries, {}, &ImageCheck::Entry::name);
  return image;
}

std::vector<Step> RandomHistories::next() {
  std::vector<Step> steps(1 + below(4));
  for (Step& step : steps) {
    step.image = image();
    for (const std::string& name : names) {
      if (below(4) == 0)
        step.removed.push_back(name);
    }
  }
  return steps;
}

} // namespace ImageCheckTest
