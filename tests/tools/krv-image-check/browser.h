// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace ImageCheckTest {

/// The path of a headless Chromium, if one is installed.
std::optional<std::string> findBrowser();

/// Opens `page` in a frame of this width, with all its details open, and returns what the browser made of it:
/// - "width" and "scrollWidth" of the document: the second is larger if the page can be scrolled sideways,
/// - "tooWide": the elements that reach beyond the right edge,
/// - "scripts": the number of script elements,
/// - "hostileTexts": how often the text "<script>" can be read.
/// Throws std::runtime_error if the browser fails.
nlohmann::json openInBrowser(const std::string& page, int width);

} // namespace ImageCheckTest
