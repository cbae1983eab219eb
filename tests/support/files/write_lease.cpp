// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/files/write_lease.h"

#include <chrono>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace Support {

WriteLease::WriteLease(const std::filesystem::path& path) : m_file(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
  signal(SIGIO, SIG_IGN); // the notice that the file is being opened would end the process
  m_isHeld = fcntl(m_file, F_SETLEASE, F_WRLCK) == 0;
  if (!m_isHeld)
    return;
  m_watcher = std::jthread([this](const std::stop_token& stop) {
    while (!stop.stop_requested() && fcntl(m_file, F_GETLEASE) == F_WRLCK)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_wasBroken = !stop.stop_requested();
    fcntl(m_file, F_SETLEASE, F_UNLCK);
  });
}

WriteLease::~WriteLease() {
  if (m_watcher.joinable()) {
    m_watcher.request_stop();
    m_watcher.join();
  }
  close(m_file);
}

} // namespace Support
