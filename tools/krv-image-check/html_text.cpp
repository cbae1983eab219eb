// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/html_text.h"

#include "common/text/printable.h"
#include "tools/krv-image-check/escape.h"

namespace ImageCheck::Html {

namespace {

std::string withEntities(std::string_view text) {
  std::string html;
  for (const char character : text) {
    switch (character) {
    case '&':
      html += "&amp;";
      break;
    case '<':
      html += "&lt;";
      break;
    case '>':
      html += "&gt;";
      break;
    case '"':
      html += "&quot;";
      break;
    case '\'':
      html += "&#39;";
      break;
    default:
      html += character;
    }
  }
  return html;
}

} // namespace

std::string escaped(std::string_view text) {
  return withEntities(Common::printable(text));
}

std::string escapedMessage(std::string_view message) {
  return withEntities(utf8(message));
}

std::string element(std::string_view name, std::string_view attributes, std::string_view content) {
  std::string html = "<";
  html.append(name);
  if (!attributes.empty())
    html.append(" ").append(attributes);
  return html.append(">").append(content).append("</").append(name).append(">");
}

std::string classed(std::string_view name, std::string_view cssClass, std::string_view content) {
  return element(name, "class=\"" + std::string(cssClass) + "\"", content);
}

std::string sectionHeading(std::string_view anchor, std::string_view title) {
  return element("h2", "id=\"" + std::string(anchor) + "\"", title);
}

std::string counted(std::size_t number, std::string_view noun) {
  return std::to_string(number) + " " + std::string(noun) + (number == 1 ? "" : "s");
}

} // namespace ImageCheck::Html
