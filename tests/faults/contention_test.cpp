// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/core/registry_sandbox.h"
#include "tests/faults/crowd.h"
#include "tests/support/process/process.h"
#include "tests/support/process/wait.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <random>

#include <signal.h>

namespace {

using Support::Process;
using Support::ProcessResult;

const std::string member = Support::program("krv-crowd-member").string();

/// A writer process that is started again after each kill until it has written all records.
class Writer {
public:
  explicit Writer(int number) : m_name(Crowd::writerName(number)) { start(); }

  /// Starts the process again if it has ended. Returns false if all records are written.
  bool tend() {
    if (!m_process || m_process->isRunning())
      return m_process != nullptr;
    const ProcessResult result = m_process->wait();
    m_process.reset();
    m_done += confirmedBy(result.output);
    EXPECT_TRUE(result.status == 0 || result.status == 128 + SIGKILL) << result.output << result.errors;
    EXPECT_EQ(result.errors, "");
    if (result.status != 128 + SIGKILL)
      return false;
    // The record that was being written during the kill may be missing; all records before it exist.
    const Crowd::Records found = Crowd::recordsOf(m_name);
    if (m_done < Crowd::recordsOfEach && found == Crowd::recordsAfter(m_name, m_done + 1))
      ++m_done;
    EXPECT_EQ(found, Crowd::recordsAfter(m_name, m_done));
    if (testing::Test::HasFailure())
      return false;
    start();
    return true;
  }

  int confirmed() { return m_done + (m_process ? confirmedBy(m_process->outputSoFar()) : 0); }
  pid_t id() const { return m_process ? m_process->id() : -1; }
  /// Kills the process; false if none was running.
  bool kill() const {
    if (m_process)
      m_process->signal(SIGKILL);
    return m_process != nullptr;
  }

private:
  void start() {
    m_process = std::make_unique<Process>(std::vector<std::string>{member, "write", m_name, std::to_string(m_done)});
  }

  static int confirmedBy(const std::string& output) { return static_cast<int>(std::ranges::count(output, '\n')); }

  std::string m_name;
  std::unique_ptr<Process> m_process;
  int m_done = 0;
};

class RegistryContention : public RegistrySandbox {
protected:
  RegistryContention() {
    for (int reader = 0; reader < Crowd::readerCount; ++reader)
      readers.push_back(std::make_unique<Process>(std::vector<std::string>{member, "read", end}));
    for (int writer = 0; writer < Crowd::writerCount; ++writer)
      writers.push_back(std::make_unique<Writer>(writer));
  }

  /// Calls tend() for all writers. Returns false if all have finished.
  bool tendAll() {
    bool busy = false;
    for (const auto& writer : writers)
      busy = writer->tend() || busy;
    return busy;
  }

  int confirmed() const {
    int sum = 0;
    for (const auto& writer : writers)
      sum += writer->confirmed();
    return sum;
  }

  /// Every second time it kills the writer that holds the lock, if it finds it: the others only wait.
  void killOne() {
    const Writer* victim = writers[pick(0, Crowd::writerCount - 1)].get();
    for (const auto& writer : writers)
      if (kills % 2 == 0 && holdsALock(writer->id()))
        victim = writer.get();
    kills += victim->kill() ? 1 : 0;
  }

  std::size_t pick(int least, int most) {
    return static_cast<std::size_t>(std::uniform_int_distribution(least, most)(random));
  }

  std::filesystem::path end = root / "end";
  std::vector<std::unique_ptr<Process>> readers;
  std::vector<std::unique_ptr<Writer>> writers;
  std::random_device::result_type seed = std::random_device()();
  std::mt19937 random{seed};
  int kills = 0;
};

TEST_F(RegistryContention, LosesNothingWhenWritersAreKilled) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::size_t nextKill = 20;
  const bool done = Support::waitUntil(
      [&] {
        if (!tendAll() || HasFailure())
          return true;
        if (static_cast<std::size_t>(confirmed()) >= nextKill) {
          killOne();
          nextKill += pick(1, 100);
        }
        return false;
      },
      std::chrono::seconds(100));
  EXPECT_TRUE(done) << "somebody waits for ever";
  Support::writeFile(end, "");

  for (int writer = 0; writer < Crowd::writerCount && done; ++writer)
    EXPECT_EQ(Crowd::recordsOf(Crowd::writerName(writer)),
              Crowd::recordsAfter(Crowd::writerName(writer), Crowd::recordsOfEach));
  EXPECT_GE(kills, 20);
  int reads = 0;
  for (const auto& reader : readers) {
    const ProcessResult result = reader->wait();
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(result.output, std::to_string(std::atoi(result.output.c_str())) + "\n");
    reads += std::atoi(result.output.c_str());
  }
  std::cout << "Contention: " << confirmed() << " records, " << kills << " kills, " << reads << " reads" << std::endl;
}

} // namespace
