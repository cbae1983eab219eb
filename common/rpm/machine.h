// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <set>
#include <string>

namespace Common::Rpm {

/// A machine, as far as RPM decides by it which packages fit.
class Machine {
public:
  /// The machine that runs this program.
  static Machine current();

  /// A machine of this architecture, with the compatible architectures that librpm's own rpmrc file lists. Nothing if
  /// that file does not know the architecture. Does not depend on the machine that runs this program.
  static std::optional<Machine> ofArchitecture(const std::string& architecture);

  /// Whether RPM installs packages of this architecture there.
  bool runs(const std::string& architecture) const;

private:
  explicit Machine(std::optional<std::set<std::string>> architectures);

  std::optional<std::set<std::string>> m_architectures; ///< nothing for the current machine
};

} // namespace Common::Rpm
