// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"
#include "common/rpm/reader.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace Common::Rpm {

/// Asks RPM whether packages can be installed together, beside the packages of its database. Changes nothing. Only for
/// the single thread of the program.
class DependencyCheck {
public:
  struct Problem {
    enum class Kind {
      Missing,  ///< nothing provides what the package requires
      Conflict, ///< the package, or the other one, declares that they cannot be installed together
    };

    Kind kind;
    std::size_t package; ///< the number that it was added with
    std::string other;   ///< the required name with its version, or the package in conflict

    auto operator<=>(const Problem&) const = default;
  };

  DependencyCheck();

  /// Adds a package. One whose dependencies SoundHeader refuses is not added, because librpm would crash on them.
  void add(const Reader& package, std::size_t number);

  /// Forgets the added packages. Keeps the database open, which takes longer to open than a package to check.
  void clear();

  /// The problems of all packages, sorted.
  std::vector<Problem> problems() const;

private:
  TransactionSetHandle m_set;
  std::multimap<std::string, std::size_t> m_numbers; ///< by name, version and architecture
};

} // namespace Common::Rpm
