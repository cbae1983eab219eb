// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The pieces of an HTML page. Every text that is not written here goes through the first two.
namespace ImageCheck::Html {

/// `text` as the content of an element or of a quoted attribute; also printable.
std::string escaped(std::string_view text);

/// The same for a message of a finding, in which names are printable already.
std::string escapedMessage(std::string_view message);

/// An element with `content`, which is markup. `attributes` is markup too, for example "class=\"card\"".
std::string element(std::string_view name, std::string_view attributes, std::string_view content);

/// An element of one class.
std::string classed(std::string_view name, std::string_view cssClass, std::string_view content);

/// The heading of a section of the page, to which navigation() links.
std::string sectionHeading(std::string_view anchor, std::string_view title);

/// "1 package", "2 packages".
std::string counted(std::size_t number, std::string_view noun);

} // namespace ImageCheck::Html
