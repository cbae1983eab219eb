// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace Common::Rpm {

enum class VersionComparison {
  Newer,
  LowerOrEqual,
  Unparsable, ///< RPM cannot parse one of the two, or it is longer than 1 MiB
  Unexpected, ///< RPM's comparison returned a number other than -1, 0 and 1
};

/// Compares two versions ("[epoch:]version[-release]") by RPM's rules: is `candidate` newer than `installed`?
VersionComparison compareVersions(const std::string& candidate, const std::string& installed);

} // namespace Common::Rpm
