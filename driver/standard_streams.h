// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

/// Process settings, so that a failed write to the log does not end the process. Only for main(), before it opens
/// anything.

/// Opens /dev/null for each of the descriptors 0 to 2 that is closed. Otherwise the next opened file or socket gets
/// that number, and the log lines are written to it.
void openStandardStreams();

/// Ignores SIGPIPE and SIGXFSZ: a write to a pipe without a reader, or above RLIMIT_FSIZE, fails instead of ending the
/// process. Child processes inherit this.
void ignoreWriteSignals();
