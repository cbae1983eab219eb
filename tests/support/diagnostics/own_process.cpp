// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/diagnostics/own_process.h"

#include "tests/support/process/process.h"

#include <gtest/gtest.h>

#include <string>

namespace Support {

bool ranInItsOwnProcess() {
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  if (all.test_to_run_count() == 1)
    return false;
  const testing::TestInfo& test = *all.current_test_info();
  const ProcessResult result =
      run({"/proc/self/exe", std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name()});
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
  return true;
}

} // namespace Support
