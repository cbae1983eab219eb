// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/dependency_check.h"

#include "common/rpm/configuration.h"
#include "common/rpm/handles.h"

#include <rpm/rpmprob.h>
#include <rpm/rpmps.h>
#include <rpm/rpmtag.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include <fcntl.h>

namespace Common::Rpm {

namespace {

bool isSound(const Reader& package) {
  static constexpr auto kinds = std::to_array<rpmTagVal>({RPMTAG_PROVIDENAME, RPMTAG_REQUIRENAME, RPMTAG_CONFLICTNAME,
                                                          RPMTAG_OBSOLETENAME, RPMTAG_RECOMMENDNAME, RPMTAG_SUGGESTNAME,
                                                          RPMTAG_SUPPLEMENTNAME, RPMTAG_ENHANCENAME, RPMTAG_ORDERNAME});
  return package.files() && std::ranges::all_of(kinds, [&](rpmTagVal kind) {
           return headerIsEntry(package.header().get(), kind) == 0 ||
                  package.dependencies(static_cast<std::int32_t>(kind)) != nullptr;
         });
}

std::optional<DependencyCheck::Problem::Kind> kindOf(rpmProblem problem) {
  switch (rpmProblemGetType(problem)) {
  case RPMPROB_REQUIRES:
    return DependencyCheck::Problem::Kind::Missing;
  case RPMPROB_CONFLICT:
  case RPMPROB_OBSOLETES:
    return DependencyCheck::Problem::Kind::Conflict;
  default:
    return std::nullopt;
  }
}

std::string textOf(const char* text) {
  return text != nullptr ? text : "";
}

} // namespace

DependencyCheck::DependencyCheck() {
  ensureRpmConfig();
  m_set = ownTransactionSet(rpmtsCreate());
  rpmtsSetRootDir(m_set.get(), nullptr);
  // Else each check would open and close it.
  rpmtsOpenDB(m_set.get(), O_RDONLY);
}

void DependencyCheck::add(const Reader& package, std::size_t number) {
  // A problem names its package only by this text.
  const std::string identity = package.tagOr(RPMTAG_NEVRA, "");
  if (isSound(package) && rpmtsAddInstallElement(m_set.get(), package.header().get(), nullptr, 0, nullptr) == 0)
    m_numbers.emplace(identity, number);
}

void DependencyCheck::clear() {
  rpmtsEmpty(m_set.get());
  m_numbers.clear();
}

std::vector<DependencyCheck::Problem> DependencyCheck::problems() const {
  rpmtsCleanProblems(m_set.get()); // rpmtsCheck() adds to the problems of an earlier call
  rpmtsCheck(m_set.get());
  const std::shared_ptr<std::remove_pointer_t<rpmps>> set = ownHandle<rpmpsFree>(rpmtsProblems(m_set.get()));
  const std::shared_ptr<std::remove_pointer_t<rpmpsi>> iterator =
      ownHandle<rpmpsFreeIterator>(rpmpsInitIterator(set.get()));
  std::vector<Problem> found;
  while (const rpmProblem problem = rpmpsiNext(iterator.get())) {
    const auto kind = kindOf(problem);
    const auto [first, last] = m_numbers.equal_range(textOf(rpmProblemGetPkgNEVR(problem)));
    for (auto package = first; kind && package != last; ++package)
      found.push_back({.kind = *kind, .package = package->second, .other = textOf(rpmProblemGetStr(problem))});
  }
  std::ranges::sort(found);
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

} // namespace Common::Rpm
