// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/log/log_message.h"
#include "tests/support/diagnostics/captured_log.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <type_traits>

#include <fcntl.h>
#include <unistd.h>

namespace {

using Support::CapturedLog;

TEST(LogMessage, MarksEachLevel) {
  const CapturedLog log;
  LogMessage(LogLevel::Info) << "i";
  LogMessage(LogLevel::Warning) << "w";
  LogMessage(LogLevel::Error) << "e";
  EXPECT_EQ(log.text(), "[I] i\n[W] w\n[E] e\n");
}

TEST(LogMessage, HasTheNumbersOfTheFamily) {
  EXPECT_EQ(static_cast<int>(LogLevel::Info), 0);
  EXPECT_EQ(static_cast<int>(LogLevel::Warning), 1);
  EXPECT_EQ(static_cast<int>(LogLevel::Error), 2);
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<LogLevel>, std::int32_t>));
}

TEST(LogMessage, WritesOnlyTheTextAtAnUnknownLevel) {
  const CapturedLog log;
  LogMessage(static_cast<LogLevel>(7)) << "x";
  LogMessage(static_cast<LogLevel>(-1)) << "y";
  EXPECT_EQ(log.text(), "x\ny\n");
}

TEST(LogMessage, WritesNothingWhenNothingWasInserted) {
  const CapturedLog log;
  { const LogMessage message(LogLevel::Error); }
  LogMessage(LogLevel::Error) << "";
  LogMessage(LogLevel::Error) << std::string();
  EXPECT_EQ(log.text(), "");
}

TEST(LogMessage, IsFlushedAtOnce) {
  std::cout << std::nounitbuf;
  const CapturedLog log;
  LogMessage(LogLevel::Warning) << "x";
  EXPECT_EQ(log.text(), "[W] x\n");
}

TEST(LogMessage, IsOneLineEvenIfMessagesOverlap) {
  const CapturedLog log;
  {
    LogMessage outer(LogLevel::Info);
    outer << "outer ";
    LogMessage(LogLevel::Error) << "inner";
    outer << "end";
  }
  EXPECT_EQ(log.text(), "[E] inner\n[I] outer end\n");
}

TEST(LogMessage, ComposesNumbersAndText) {
  const CapturedLog log;
  LogMessage(LogLevel::Info) << "Time: " << 42 << " seconds" << std::string(", ") << -7L;
  EXPECT_EQ(log.text(), "[I] Time: 42 seconds, -7\n");
}

TEST(LogMessage, QuotesPaths) {
  const CapturedLog log;
  LogMessage(LogLevel::Error) << "At: " << std::filesystem::path("/tmp/a b.rpm");
  LogMessage(LogLevel::Error) << std::filesystem::path(R"(/tmp/"q"\.rpm)");
  EXPECT_EQ(log.text(), R"([E] At: "/tmp/a b.rpm"
[E] "/tmp/\"q\"\\.rpm"
)");
}

TEST(LogMessage, WritesAPathLikeTheStandardLibrary) {
  std::string everyByte;
  for (int byte = 0; byte < 256; ++byte)
    everyByte += static_cast<char>(byte);
  for (const std::filesystem::path path : {std::string(), everyByte, std::string(R"(\""\")"), std::string("\\")}) {
    const CapturedLog log;
    LogMessage(LogLevel::Info) << path;
    std::ostringstream expected;
    expected << "[I] " << path << '\n';
    EXPECT_EQ(log.text(), expected.str());
  }
}

TEST(LogMessage, FormatsAPathLikeTheStandardLibrary) {
  const std::filesystem::path path = "/a\"b";
  const CapturedLog log;
  LogMessage(LogLevel::Info) << std::left << std::setfill('.') << std::setw(12) << path << path;
  std::ostringstream expected;
  expected << "[I] " << std::left << std::setfill('.') << std::setw(12) << path << path << '\n';
  EXPECT_EQ(log.text(), expected.str());
}

TEST(LogMessage, KeepsTheTextBeforeANullPointerAndLosesTheRest) {
  const CapturedLog log;
  LogMessage(LogLevel::Error) << "before" << static_cast<const char*>(nullptr) << "after";
  EXPECT_EQ(log.text(), "[E] before\n");
}

TEST(LogMessage, WritesNothingForOnlyANullPointer) {
  const CapturedLog log;
  LogMessage(LogLevel::Error) << static_cast<const char*>(nullptr) << "after";
  EXPECT_EQ(log.text(), "");
}

TEST(LogMessage, SurvivesAFullDevice) {
  const int saved = dup(STDOUT_FILENO);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  dup2(full, STDOUT_FILENO);
  LogMessage(LogLevel::Error) << "lost";
  dup2(saved, STDOUT_FILENO);
  close(saved);
  close(full);
  EXPECT_TRUE(std::cout.bad());
  std::cout.clear();
}

TEST(LogMessageDeath, EndsTheProcessWhenWritingThrows) {
  EXPECT_EXIT(
      {
        std::cout.setstate(std::ios::badbit);
        try {
          std::cout.exceptions(std::ios::badbit);
        } catch (const std::ios::failure&) {
        }
        LogMessage(LogLevel::Error) << "x";
      },
      testing::KilledBySignal(SIGABRT), "terminate called after throwing an instance of '[^']*ios[^']*failure");
}

TEST(LogMessage, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<LogMessage>);
  EXPECT_FALSE(std::is_copy_assignable_v<LogMessage>);
  EXPECT_TRUE(std::is_nothrow_destructible_v<LogMessage>);
}

} // namespace
