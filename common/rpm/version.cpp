// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/version.h"

#include "common/rpm/handles.h"

namespace Common::Rpm {

namespace {

/// librpm copies the versions onto the stack; two versions of some megabytes crash the process.
constexpr std::size_t longestVersion = 1024 * 1024;

} // namespace

VersionComparison compareVersions(const std::string& candidate, const std::string& installed) {
  if (candidate.size() > longestVersion || installed.size() > longestVersion)
    return VersionComparison::Unparsable;
  const VersionHandle first = ownVersion(rpmverParse(candidate.c_str()));
  const VersionHandle second = ownVersion(rpmverParse(installed.c_str()));
  if (!first || !second)
    return VersionComparison::Unparsable;
  switch (rpmverCmp(first.get(), second.get())) {
  case 1:
    return VersionComparison::Newer;
  case 0:
  case -1:
    return VersionComparison::LowerOrEqual;
  default:
    return VersionComparison::Unexpected;
  }
}

} // namespace Common::Rpm
