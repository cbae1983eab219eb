// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

/// Settings of the process that keep it from ending when it writes its log. For main() only, before it opens anything.

/// Opens /dev/null in place of each of the descriptors 0 to 2 that is closed. Otherwise the next file or socket that is
/// opened gets its number, and the lines of the log.
void openStandardStreams();

/// Ignores SIGPIPE and SIGXFSZ: writing to a pipe that nobody reads, or more than RLIMIT_FSIZE allows, fails and does
/// not end the process. Programs that the process starts inherit this.
void ignoreWriteSignals();
