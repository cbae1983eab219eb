// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/archive_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<int> badCloses = 0; // atomic, because a payload's thread closes files too

} // namespace

// Replaces the C library's function for this program and its libraries.
extern "C" int close(int descriptor) {
  const int result = static_cast<int>(syscall(SYS_close, descriptor));
  if (result != 0 && errno == EBADF)
    ++badCloses;
  return result;
}

namespace {

using Common::Rpm::ArchiveReader;

std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

class Descriptor : public ArchiveTest::Fixture, public testing::WithParamInterface<ArchiveTest::Compressor> {};

TEST_P(Descriptor, IsClosedOnce) {
  build(ArchiveTest::mixedPackage, GetParam());
  extracted(); // now librpm has opened its database, which it keeps open
  badCloses = 0;
  const std::ptrdiff_t before = openDescriptors();
  extracted();
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(badCloses, 0);
}

TEST_P(Descriptor, IsClosedOnceWhenTheExtractionIsAborted) {
  build(ArchiveTest::mixedPackage, GetParam());
  open();
  badCloses = 0;
  const std::ptrdiff_t before = openDescriptors();
  {
    ArchiveReader archive = open();
    EXPECT_GE(openDescriptors(), before + 2); // the file and the read end of the pipe
    EXPECT_THROW(archive.extract("/target", {}), std::bad_function_call);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(badCloses, 0);
}

TEST_P(Descriptor, StaysOpenForTheLastCopy) {
  build(ArchiveTest::mixedPackage, GetParam());
  const ArchiveTest::Events sound = extracted();
  badCloses = 0;
  auto archive = std::make_unique<ArchiveReader>(open());
  ArchiveReader copy = *archive;
  archive.reset();
  ArchiveTest::Events events;
  copy.extract("/target", ArchiveTest::recording(copy, events));
  EXPECT_EQ(events, sound);
  EXPECT_EQ(badCloses, 0);
}

INSTANTIATE_TEST_SUITE_P(Table, Descriptor, testing::ValuesIn(ArchiveTest::compressors),
                         [](const auto& instance) { return instance.param.name; });

TEST(CloseInTheTest, CountsABadDescriptor) {
  badCloses = 0;
  EXPECT_EQ(close(-1), -1);
  EXPECT_EQ(badCloses, 1);
}

} // namespace
