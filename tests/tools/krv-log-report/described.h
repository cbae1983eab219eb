// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The result of reading `log`: a line for each row, each end of a run and each unknown line, the
/// latter with its number, in the order in which the reader finds them:
///
///   a.rpm: installed
///   b.rpm: skipped (NotNewer): the detail
///   unknown: 7
///   complete: 3 s: the detail
std::string described(const std::string& log);

/// The lines that the tool writes, with the folder of the packages before the name of an entry.
std::string pathOf(const std::string& entry);
std::string installed(const std::string& entry);
std::string failed(const std::string& reason, const std::string& entry);
std::string skipped(const std::string& entry);
std::string notNewer(const std::string& entry);
std::string unreadable(const std::string& reason, const std::string& entry);
inline const std::string timeLine = "[I] Time spent for pre-installation: 3 seconds\n";
