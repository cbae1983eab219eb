// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// One of several processes that use a registry at the same time.
//
//   krv-crowd-member write NAME FIRST   writes the records of a writer from position FIRST on, and prints a line for
// each;
//                                       checks after each that all of its records are in the registry
//   krv-crowd-member read FILE          reads until FILE exists, then prints the number of reads; checks each time that
// the
//                                       registry is a possible result of the writers and not older than the last one
//
// Exit status: 0 success, 1 a check failed; the last line gives the reason.

#include "tests/faults/crowd.h"

#include <filesystem>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string_view>

namespace {

using Core::KRV::Registry;
using Core::KRV::RegistryRecord;
using Crowd::Records;

void require(bool condition, const std::string& complaint) {
  if (!condition)
    throw std::runtime_error(complaint);
}

void write(const std::string& name, int first) {
  require(Crowd::recordsOf(name) == Crowd::recordsAfter(name, first), "the registry is not what was left");
  for (int position = first; position < Crowd::recordsOfEach; ++position) {
    require(Registry().writeRecord(Crowd::recordAt(name, position)), "a record was not written");
    std::cout << position << std::endl;
    require(Crowd::recordsOf(name) == Crowd::recordsAfter(name, position + 1), "a record was lost");
  }
}

/// The records that each writer leaves after each of its records, by the timestamp of that record.
class History {
public:
  History() {
    for (int writer = 0; writer < Crowd::writerCount; ++writer)
      for (int count = 1; count <= Crowd::recordsOfEach; ++count)
        m_states[Crowd::writerName(writer)].push_back(Crowd::recordsAfter(Crowd::writerName(writer), count));
  }

  void check() {
    std::map<std::string, Records> found;
    const auto take = [&](const RegistryRecord& record) { found[record.keyId].push_back(record); };
    require(Registry().foreachRecord(take), "the registry cannot be read");
    for (const auto& [writer, records] : found) {
      const auto newest = records.back().timestamp;
      require(records == m_states.at(writer).at(static_cast<std::size_t>(newest)), "no writer has left such records");
      require(newest >= m_newest[writer], "a record has gone again");
      m_newest[writer] = newest;
    }
  }

private:
  std::map<std::string, std::vector<Records>> m_states;
  std::map<std::string, std::int64_t> m_newest;
};

void read(const std::filesystem::path& end) {
  History history;
  int reads = 0;
  do {
    history.check();
    ++reads;
  } while (!std::filesystem::exists(end));
  std::cout << reads << std::endl;
}

} // namespace

int main(int count, char** arguments) {
  try {
    const std::vector<std::string> words(arguments + 1, arguments + count);
    if (words.at(0) == "write")
      write(words.at(1), std::stoi(words.at(2)));
    else
      read(words.at(1));
    return 0;
  } catch (const std::exception& exception) {
    std::cout << exception.what() << std::endl;
    return 1;
  }
}
