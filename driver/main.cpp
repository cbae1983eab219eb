// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/log/messages.h"
#include "driver/run.h"
#include "driver/standard_streams.h"

#include <exception>

int main() {
  openStandardStreams();
  ignoreWriteSignals();
  try {
    return run();
  } catch (const std::exception& error) {
    // Not 1: that status means that the service or the list of packages was not available.
    logLine<Message::ErrorText>(error.what());
    return 2;
  }
}
