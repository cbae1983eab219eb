// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <vector>

namespace Common::Filesystem {

/// The value of HOME exactly as it is, even when empty. Throws Common::Error, Filesystem, "Couldn't locate current
/// user home directory", without a log line, when the variable is not defined. The user database is not asked.
std::filesystem::path homeDirectory();

/// "home" below rootDirectory(), joined with the name of each listed member of the group "users", in the order of the
/// group database and as often as it lists them; whether they exist is not asked. Users who have the group as their
/// primary one are members only when listed.
/// Throws Common::Error, Internal, without a log line: "Couldn't retrieve information about 'users' group" when there
/// is no such group, "Couldn't retrieve list of system users" when it has no list at all.
/// Uses getgrnam(3): must not run at the same time as another look-up of a group.
std::vector<std::filesystem::path> usersHomeDirectories();

/// The standard library's directory for temporary files (TMPDIR and its kin, else /tmp). Throws Common::Error,
/// Filesystem, "Couldn't retrieve temp directory path", after an error line with the reason, when that is no directory.
std::filesystem::path tempDirectory();

/// `model` with each "%" replaced by a lower-case hexadecimal digit of the system's cryptographic random source.
/// Whether the name is taken is not asked. An error of the random source passes unchanged, as a std::exception.
std::filesystem::path uniquePath(const std::filesystem::path& model);

} // namespace Common::Filesystem
