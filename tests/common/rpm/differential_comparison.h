// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace Differential {

/// One result of this project's code and librpm's result.
struct Answers {
  std::string ours;
  std::string theirs;
  bool operator==(const Answers&) const = default;
};

inline const std::string installedTree = "installed tree";

/// The names of the questions with different answers:
/// - "header": whether the header can be read (rpm -qp),
/// - "package": whether all of the package can be read (rpm -K --nosignature and rpm2archive),
/// - "tag NAME": the texts of one tag, of all that have texts (rpm -qp --queryformat),
/// - "files": the list of files (rpm -qp --dump),
/// - "tree": what is unpacked (rpm2archive and tar),
/// - installedTree: what is installed (rpm -i --root): for root alone, who may change the root directory, and not for
///   source packages.
using Differences = std::map<std::string, Answers>;

/// Compares both for one package file. `folder` must exist and be empty; all files are created in it.
Differences compare(const std::filesystem::path& package, const std::filesystem::path& folder);

} // namespace Differential
