// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include <signal.h>

namespace Common::Posix {

/// Blocks all signals in the calling thread until it is destroyed. A thread that is started meanwhile inherits the mask
/// and keeps it.
class BlockedSignals {
public:
  BlockedSignals() : BlockedSignals(all()) {}

  /// Does not block those of SIGHUP, SIGINT, SIGQUIT, SIGTERM and SIGALRM that have their default action, so that they
  /// end the process; a signal that is blocked already stays blocked. For a long wait that a signal handler must not
  /// interrupt.
  [[nodiscard]] static BlockedSignals exceptFatalOnes() {
    constexpr std::array requests = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM};
    sigset_t signals = all();
    for (const int signal : requests) {
      struct sigaction action;
      if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL)
        sigdelset(&signals, signal);
    }
    return BlockedSignals(signals);
  }

  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
  explicit BlockedSignals(const sigset_t& signals) { pthread_sigmask(SIG_BLOCK, &signals, &m_before); }

  static sigset_t all() {
    sigset_t signals;
    sigfillset(&signals);
    return signals;
  }

  sigset_t m_before;
};

} // namespace Common::Posix
