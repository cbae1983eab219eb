// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/log/messages.h"
#include "tests/support/diagnostics/captured_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using std::filesystem::path;
using Support::CapturedLog;

TEST(Messages, WriteTheirTextAtTheirLevel) {
  const CapturedLog log;
  logLine<Message::NoProxy>();
  logLine<Message::NoRpmConfiguration>();
  logLine<Message::CopiesSymlinkTarget>();
  EXPECT_EQ(log.text(), "[E] Failed to create dbus proxy for KRV service\n"
                        "[W] Couldn't read RPM configuration files\n"
                        "[I] Trying to copy content of the symlink target\n");
}

TEST(Messages, PutValuesInPlaceOfThePlaceholders) {
  const CapturedLog log;
  logLine<Message::Skipping>(path("/a \"b\""));
  logLine<Message::RegistryNotReplaced>(path("/a"), path("/b"));
  logLine<Message::TimeSpent>(12L);
  logLine<Message::BadRecord>(std::string("{path}"));
  logLine<Message::InstallationError>(std::string("a\n[I] b"));
  EXPECT_EQ(log.text(), "[I] Skipping package pre-installation: \"/a \\\"b\\\"\"\n"
                        "[E] Couldn't atomically update registry: \"/a\" -> \"/b\"\n"
                        "[I] Time spent for pre-installation: 12 seconds\n"
                        "[W] Bad registry record found: '{path}'\n"
                        "[E] Package installation error: a\n[I] b\n");
}

TEST(Messages, WriteTheTextOfAnErrorAlone) {
  const CapturedLog log;
  logLine<Message::ErrorText>(std::string("Went wrong"));
  logLine<Message::ErrorText>(std::string());
  EXPECT_EQ(log.text(), "[E] Went wrong\n");
}

TEST(Messages, TakeTheValuesOfTheirPlaceholders) {
  using MessageDetails::hasPlaceholders;
  EXPECT_TRUE(hasPlaceholders("a {path} -> {path}", {"{path}", "{path}"}));
  EXPECT_TRUE(hasPlaceholders("a", {}));
  EXPECT_FALSE(hasPlaceholders("a", {"{path}"}));
  EXPECT_FALSE(hasPlaceholders("a {path}", {}));
  EXPECT_FALSE(hasPlaceholders("a {path}", {"{text}"}));
  EXPECT_FALSE(hasPlaceholders("a {path} {text}", {"{path}"}));
  EXPECT_EQ(MessageDetails::placeholderOf<path>(), "{path}");
  EXPECT_EQ(MessageDetails::placeholderOf<long>(), "{number}");
  EXPECT_EQ(MessageDetails::placeholderOf<std::string>(), "{text}");
  EXPECT_EQ(MessageDetails::placeholderOf<const char*>(), "{text}");
}

} // namespace
