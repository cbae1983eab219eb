// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <vector>

namespace Common::Filesystem {

/// The unchanged value of HOME, even if it is empty. Throws Common::Error, Filesystem, "Couldn't locate current user
/// home directory", without a log line, if the variable is not defined. Does not read the user database.
std::filesystem::path homeDirectory();

/// "home" below rootDirectory(), joined with the name of each listed member of the group "users", in the order of the
/// group database, with its duplicates. Does not check that the directories exist. A user whose primary group is
/// "users" counts only if listed.
/// Throws Common::Error, Internal, without a log line: "Couldn't retrieve information about 'users' group" if there is
/// no such group, "Couldn't retrieve list of system users" if its member list is null.
/// Uses getgrnam(3): must not run in parallel with another group look-up.
std::vector<std::filesystem::path> usersHomeDirectories();

/// The standard library's directory for temporary files (TMPDIR, TMP, TEMP or TEMPDIR, else /tmp). Throws
/// Common::Error, Filesystem, "Couldn't retrieve temp directory path", after an error line with the reason, if it is
/// not a directory.
std::filesystem::path tempDirectory();

/// `model` with each "%" replaced by a lower-case hexadecimal digit of the system's cryptographic random source.
/// Does not check whether the path exists. An error of the random source is passed on unchanged, as a std::exception.
std::filesystem::path uniquePath(const std::filesystem::path& model);

} // namespace Common::Filesystem
