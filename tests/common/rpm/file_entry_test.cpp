// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/file_entry.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

using Common::Rpm::typeOf;
using std::filesystem::file_type;

TEST(FileType, IsTheTypeOfTheMode) {
  EXPECT_EQ(typeOf(S_IFDIR | 0755), file_type::directory);
  EXPECT_EQ(typeOf(S_IFLNK | 0777), file_type::symlink);
  EXPECT_EQ(typeOf(S_IFREG | 0644), file_type::regular);
  EXPECT_EQ(typeOf(S_IFBLK | 0660), file_type::block);
  EXPECT_EQ(typeOf(S_IFCHR | 0620), file_type::character);
  EXPECT_EQ(typeOf(S_IFIFO | 0600), file_type::fifo);
  EXPECT_EQ(typeOf(S_IFSOCK | 0600), file_type::socket);
}

TEST(FileType, IsUnknownForAModeWithoutAType) {
  EXPECT_EQ(typeOf(0644), file_type::unknown);
  EXPECT_EQ(typeOf(0170000 | 0644), file_type::unknown);
}

} // namespace
