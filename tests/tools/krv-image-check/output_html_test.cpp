// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/sample_report.h"
#include "tools/krv-image-check/output_html.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace {

TEST(Html, Writes) {
  std::ofstream(std::getenv("OUT_HTML")) << ImageCheck::toHtml(ImageCheckTest::sampleReport(), "0.1.0");
}

} // namespace
