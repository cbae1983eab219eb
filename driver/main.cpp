// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/log/log_message.h"
#include "driver/run.h"

#include <exception>

int main() {
  try {
    return run();
  } catch (const std::exception& error) {
    // Not 1: that status says that the service or the list of packages could not be had.
    LogMessage(LogLevel::Error) << error.what();
    return 2;
  }
}
