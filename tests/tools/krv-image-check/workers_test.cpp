// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/workers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <vector>

#include <unistd.h>

namespace {

using ImageCheck::doInWorkers;
using Results = std::vector<std::optional<std::string>>;

TEST(Workers, ReturnTheResultsInOrderWhateverTheirNumber) {
  const auto square = [](std::size_t index) { return std::to_string(index * index) + std::string(1, '\0'); };
  Results expected;
  for (std::size_t index = 0; index < 50; ++index)
    expected.emplace_back(square(index));
  for (const unsigned jobs : {1U, 3U, 50U, 200U})
    EXPECT_EQ(doInWorkers({.count = 50, .jobs = jobs, .work = square}), expected) << jobs;
}

TEST(Workers, AreNotNeededForNothing) {
  EXPECT_EQ(doInWorkers({.count = 0, .jobs = 4, .work = [](std::size_t) { return ""; }}), Results());
}

TEST(Workers, LoseOnlyThePieceAtWhichTheyDie) {
  const auto work = [](std::size_t index) -> std::string {
    if (index == 1)
      std::abort();
    if (index == 3)
      throw std::runtime_error("a reason");
    if (index == 4)
      _exit(0);
    return "done";
  };
  const Results expected{"done", std::nullopt, "done", std::nullopt, std::nullopt, "done"};
  for (const unsigned jobs : {1U, 2U, 6U})
    EXPECT_EQ(doInWorkers({.count = 6, .jobs = jobs, .work = work}), expected) << jobs;
}

TEST(Workers, HaveOnlySoMuchMemory) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer needs more";
#endif
  const auto work = [](std::size_t index) {
    return std::to_string(std::string(index == 0 ? std::size_t{3} << 30 : 5, 'x').size());
  };
  EXPECT_EQ(doInWorkers({.count = 2, .jobs = 1, .work = work}), (Results{std::nullopt, "5"}));
}

TEST(Workers, HaveOnlySoMuchTime) {
  const auto work = [](std::size_t index) {
    while (index == 0)
      (void)getppid(); // without a call the compiler may remove the loop
    return "done";
  };
  EXPECT_EQ(doInWorkers({.count = 2, .jobs = 1, .work = work, .cpuSeconds = 1}), (Results{std::nullopt, "done"}));
}

TEST(Workers, SendLargeResults) {
  const std::string large(10'000'000, 'x');
  EXPECT_EQ(doInWorkers({.count = 3, .jobs = 3, .work = [&](std::size_t) { return large; }}),
            (Results{large, large, large}));
}

TEST(Workers, PrintNothing) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  (void)doInWorkers({.count = 2, .jobs = 2, .work = [](std::size_t) {
                       std::cout << "from a package" << std::endl;
                       std::cerr << "from a package" << std::endl;
                       return "";
                     }});
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Workers, CountWhatTheyHaveDone) {
  std::vector<std::size_t> counts;
  (void)doInWorkers({.count = 3,
                     .jobs = 2,
                     .work = [](std::size_t) { return ""; },
                     .progress = [&](std::size_t done) { counts.push_back(done); }});
  EXPECT_EQ(counts, (std::vector<std::size_t>{1, 2, 3}));
}

} // namespace
