// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/browser.h"

#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace ImageCheckTest {

namespace {

// The page itself has no script. This one is around it and looks into its frame.
constexpr const char* script = R"js(
const frame = document.querySelector("iframe");
frame.onload = () => {
  const inside = frame.contentDocument, root = inside.documentElement;
  for (const details of inside.querySelectorAll("details")) details.open = true;
  const isTooWide = element => element.getBoundingClientRect().right > root.clientWidth + 0.5;
  const seen = {
    width: root.clientWidth,
    scrollWidth: root.scrollWidth,
    tooWide: [...inside.body.querySelectorAll("*")].filter(isTooWide).map(element => element.outerHTML.slice(0, 80)),
    scripts: inside.scripts.length,
    hostileTexts: inside.body.innerText.split("<script>").length - 1
  };
  document.body.textContent = "SEEN" + encodeURIComponent(JSON.stringify(seen)) + "SEEN";
};
)js";

std::string asAttribute(const std::string& page) {
  std::string text;
  for (const char character : page)
    text += character == '&' ? "&amp;" : character == '"' ? "&quot;" : std::string(1, character);
  return text;
}

std::string decoded(const std::string& text) {
  std::string bytes;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (text[index] != '%') {
      bytes += text[index];
      continue;
    }
    bytes += static_cast<char>(std::stoi(text.substr(index + 1, 2), nullptr, 16));
    index += 2;
  }
  return bytes;
}

} // namespace

std::optional<std::string> findBrowser() {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    for (const char* name : {"chromium-headless-shell", "chromium"}) {
      std::error_code ignored; // of folders that another user may not read
      if (std::filesystem::exists(std::filesystem::path(folder) / name, ignored))
        return std::filesystem::path(folder) / name;
    }
  }
  return std::nullopt;
}

nlohmann::json openInBrowser(const std::string& page, int width) {
  const Support::TempDirectory folder;
  const std::string size = "width:" + std::to_string(width) + "px;height:900px;border:0";
  Support::writeFile(folder / "outside.html", "<!DOCTYPE html><meta charset=\"utf-8\"><body><iframe style=\"" + size +
                                                  "\" srcdoc=\"" + asAttribute(page) + "\"></iframe><script>" + script +
                                                  "</script>");
  Support::Process browser({*findBrowser(), "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                            "--window-size=1600,1000", "--virtual-time-budget=5000", "--timeout=60000",
                            "--user-data-dir=" + (folder / "profile").string(), "--dump-dom",
                            "file://" + (folder / "outside.html").string()},
                           {{"HOME", folder.path().string()}});
  const Support::ProcessResult result = browser.wait();
  const std::string mark = "SEEN";
  const std::size_t begin = result.output.find("<body>" + mark);
  if (begin == std::string::npos)
    throw std::runtime_error("the browser has not shown the page: " + result.output + result.errors);
  const std::size_t first = begin + 6 + mark.size();
  return nlohmann::json::parse(decoded(result.output.substr(first, result.output.find(mark, first) - first)));
}

} // namespace ImageCheckTest
