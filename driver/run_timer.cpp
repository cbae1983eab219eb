// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/run_timer.h"

#include "driver/log/messages.h"

RunTimer::~RunTimer() {
  const auto elapsed = std::chrono::steady_clock::now() - m_start;
  logLine<Message::TimeSpent>(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count());
}
