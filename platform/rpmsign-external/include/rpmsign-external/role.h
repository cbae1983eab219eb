// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace PackageSignatures {

/// The role in which a certificate signs packages.
enum class Role {
  Developer,
  Source,
};

} // namespace PackageSignatures
