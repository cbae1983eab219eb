// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "driver/log/messages.h"
#include "tools/krv-log-report/model.h"

namespace LogReport {

/// The place of a message in the log of a run.
struct Place {
  enum class Kind {
    Text,      ///< a text from elsewhere, which may have several lines
    Remark,    ///< about the current package; the decision goes on
    Cause,     ///< with the path: why the package is skipped. The line that skips it follows.
    Outcome,   ///< the last line of a package, with its path
    End,       ///< ends the run
    Elsewhere, ///< the libraries have it, but the tool never writes it
  };

  Kind kind;
  Outcome outcome = Outcome::Unknown; ///< of an Outcome
  Reason reason = Reason::None;       ///< of a Cause, and of an Outcome that always has the same
  End end = End::Cut;                 ///< of an End
};

/// A new message does not compile before it has its place here.
Place placeOf(Message message);

} // namespace LogReport
