// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/test_image.h"

#include <gtest/gtest.h>

#include <elf.h>

namespace {

namespace fs = std::filesystem;

using ImageCheckTest::TestImage;

/// The content of the fenced block number `index` of docs/image-check.md.
std::string block(std::size_t index) {
  const std::string text = Support::readFile(KRV_SOURCE_DIRECTORY "/docs/image-check.md");
  const std::string fence = "\n```\n";
  std::size_t begin = text.find(fence);
  for (; index > 0; --index)
    begin = text.find(fence, text.find(fence, begin + 1) + 1);
  const std::size_t start = begin + fence.size();
  return text.substr(start, text.find("```\n", start) - start);
}

TEST(ImageCheckDocument, ShowsTheOutputAboutABrokenAndARepairedImage) {
  TestImage image;
  image.copy("image-1.4");
  fs::remove(image.entry("notes.rpm"));
  const fs::path notes = image.add({.name = "notes", .version = "0.9"});
  const fs::path mail = image.add({.name = "mail"}, "");
  const fs::path maps = image.add({.name = "maps", .architecture = "", .arguments = {"--target", "aarch64"}});
  const fs::path music = image.add({.name = "music", .preamble = "Requires: libsound"});
  fs::create_symlink("radio-2.rpm", image.entry("radio.rpm"));
  Support::writeFile(image.entry(".gitkeep"), "");
  const Support::ProcessResult broken = image.run({"--previous", "image-1.4"});
  EXPECT_EQ(broken.status, 1);
  EXPECT_EQ(broken.output, block(0));

  for (const char* name : {"radio.rpm", ".gitkeep", "mail.rpm"})
    fs::remove(image.entry(name));
  image.add({.name = "mail"});
  image.add({.name = "maps"});
  image.add({.name = "music"});
  image.add({.name = "notes", .version = "1.1"});
  const Support::ProcessResult repaired = image.run({"--previous", "image-1.4", "--space", "1000000", "--deep"});
  EXPECT_EQ(repaired.status, 0);
  EXPECT_EQ(repaired.output, block(1));
}

} // namespace
