// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace Support {

/// Sets an environment variable (removes it if there is no value) and restores the old state at the end of its scope.
class ScopedEnvironment {
public:
  ScopedEnvironment(std::string name, const std::optional<std::string>& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
  std::string m_name;
  std::optional<std::string> m_before;
};

} // namespace Support
