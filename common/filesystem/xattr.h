// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

/// Extended attributes, see xattr(7). Reading follows symlinks, writing does not. Names include their namespace
/// ("user.", "security."); values are raw bytes. All failures are Common::Error, Filesystem, without a log line.
namespace Common::Filesystem {

/// Pairs of name and value, in the order of the operating system.
using XattrList = std::vector<std::pair<std::string, std::string>>;

/// The value of one attribute of `path`, symlinks followed. Its length is the size that the system returned first: a
/// value that shrinks meanwhile is padded with zero bytes, a value that grows is an error.
/// Messages: "Couldn't retrieve size of NAME extended attribute: PATH" and, when the value itself cannot be read,
/// "Couldn't retrieve NAME extended attribute: PATH".
std::string getXattr(const std::filesystem::path& path, const std::string& name);

/// Every attribute of `path`, symlinks followed, in every namespace that the system shows. Passes on errors of
/// getXattr().
/// Messages: "Couldn't retrieve size of extended attributes: PATH" and "Couldn't retrieve extended attributes: PATH".
XattrList listXattrs(const std::filesystem::path& path);

/// The same for the open file `descriptor`, which the caller owns; the messages name it `path`.
XattrList listXattrs(int descriptor, const std::filesystem::path& path);

/// Adds or replaces one attribute of `path`; a symlink is not followed. Does nothing if `value` is empty.
/// Message: "Couldn't attach NAME extended attribute to PATH".
void setXattr(const std::filesystem::path& path, const std::string& name, const std::string& value);

} // namespace Common::Filesystem
