// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

/// What a program does at its start, before it opens anything, so that writing its log never ends it. For main() only:
/// the settings are the process's.

/// Opens /dev/null in place of each of the descriptors 0 to 2 that is closed. Otherwise the next file or socket that is
/// opened gets its number, and the lines of the log.
void openStandardStreams();

/// Ignores SIGPIPE and SIGXFSZ: writing to a pipe that nobody reads, or more than RLIMIT_FSIZE allows, fails and does
/// not end the process. Programs that the process starts inherit this.
void ignoreWriteSignals();
