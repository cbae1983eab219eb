// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error.h"

#include <gtest/gtest.h>

#include <string>

namespace Support {

/// Expects `action` to throw a Common::Error with exactly this code and this message.
template <typename Action>
void expectError(Action action, Common::ErrorCode code, const std::string& message) {
  try {
    action();
    ADD_FAILURE() << "nothing was thrown in place of: " << message;
  } catch (const Common::Error& error) {
    EXPECT_EQ(error.code(), code) << error.code().message();
    EXPECT_EQ(error.what(), message);
  }
}

} // namespace Support
