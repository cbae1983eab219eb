// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/sandbox/store/store_fixture.h"
#include "tests/support/faults/supervised.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace StoreTest {

/// An operation of a process on a store in which another package is installed.
enum class Operation { Installation, Update, Removal };

std::string nameOf(Operation operation);

/// One of this many calls is disturbed. The sanitizers make each operation several times slower, and the errors of
/// neighbouring calls take nearly the same way.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr std::size_t sample = 4;
#else
inline constexpr std::size_t sample = 1;
#endif

/// Operations that are disturbed. They have everything that an update can meet: files, links and hard links that are
/// added, replaced and removed, new and obsolete directories, modes, and a file that another package has as well.
class OperationFixture : public Fixture {
protected:
  /// Puts the root into the state before `operation`, and finds out what the undisturbed operation does.
  void prepare(Operation operation);

  /// The root as before the operation.
  void restore();

  /// The operation in a process of its own.
  Support::SupervisedResult run(const std::optional<Support::Fault>& fault = {},
                                const Support::BeforeCall& beforeCall = {},
                                const Support::Environment& environment = {}) const;

  /// Opens a store in a process of its own.
  Support::SupervisedResult open(const std::optional<Support::Fault>& fault = {}) const;

  /// The first of the operation's calls of which this holds.
  template <typename Predicate>
  const Support::SeenCall& callThat(Predicate predicate) const;

  bool isChange(const Support::SeenCall& call) const;

  std::filesystem::path home() const { return root() / "var/lib/krv/sandbox"; }
  std::filesystem::path transaction() const { return home() / "transaction"; }

  /// The state without what depends on the time of day.
  std::string comparableState() const;

  std::vector<Support::SeenCall> m_calls; ///< of the undisturbed operation
  std::string m_before;
  std::string m_after;

private:
  std::vector<std::string> m_command;
  std::filesystem::path m_template = m_rpm.path() / "template";
};

template <typename Predicate>
const Support::SeenCall& OperationFixture::callThat(Predicate predicate) const {
  for (const Support::SeenCall& call : m_calls) {
    if (predicate(call))
      return call;
  }
  throw std::runtime_error("The operation makes no such call");
}

} // namespace StoreTest
