// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"
#include "tools/krv-image-check/options.h"

#include <cstddef>
#include <functional>
#include <stdexcept>

namespace ImageCheck {

/// A mistake in what the user gave.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Called with the number of checked entries and the number of all.
using Progress = std::function<void(std::size_t done, std::size_t all)>;

/// Checks the image. Throws UsageError, std::system_error if the image cannot be checked, and Interrupted.
Report check(const Options& options, const Progress& progress);

} // namespace ImageCheck
