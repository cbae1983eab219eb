// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-log-report/parsed_line.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace LogReport {

namespace {

using Kind = ParsedLine::Kind;

constexpr std::size_t markSize = 4;

std::optional<LogLevel> levelOf(std::string_view line) {
  if (line.starts_with("[I] "))
    return LogLevel::Info;
  if (line.starts_with("[W] "))
    return LogLevel::Warning;
  if (line.starts_with("[E] "))
    return LogLevel::Error;
  return std::nullopt;
}

/// Reads one message: its fixed pieces and values in turn.
class FormReader {
public:
  FormReader(std::string_view form, std::string_view text) : m_form(form), m_text(text) {}

  Kind read() {
    while (m_kind == Kind::Whole && (!m_form.empty() || !m_text.empty()))
      readPiece();
    return m_kind;
  }

  std::string takeValue() { return std::move(m_value); }

private:
  void readPiece() {
    const std::string_view piece = m_form.substr(0, m_form.find('{'));
    if (!m_text.starts_with(piece)) {
      m_kind = Kind::Unknown;
      return;
    }
    m_text.remove_prefix(piece.size());
    m_form.remove_prefix(piece.size());
    if (!m_form.empty())
      readValue();
    else if (!m_text.empty())
      m_kind = Kind::Unknown;
  }

  void readValue() {
    const std::size_t end = m_form.find('}') + 1;
    const std::string_view placeholder = m_form.substr(0, end);
    m_form.remove_prefix(end);
    std::string value;
    if (placeholder == "{path}")
      value = readPath();
    else if (placeholder == "{number}")
      value = take(std::min(m_text.find_first_not_of("0123456789"), m_text.size()));
    else if (m_text.ends_with(m_form))
      value = take(m_text.size() - m_form.size());
    if (!m_hasValue)
      m_value = std::move(value);
    m_hasValue = true;
  }

  std::string take(std::size_t size) {
    std::string taken(m_text.substr(0, size));
    m_text.remove_prefix(size);
    return taken;
  }

  /// Reads what the standard inserter of a path writes.
  std::string readPath() {
    std::string path;
    if (!m_text.starts_with('"')) {
      m_kind = Kind::Unknown;
      return path;
    }
    for (std::size_t i = 1; i < m_text.size(); ++i) {
      if (m_text[i] == '"') {
        m_text.remove_prefix(i + 1);
        return path;
      }
      if (m_text[i] == '\\' && ++i < m_text.size() && m_text[i] != '"' && m_text[i] != '\\') {
        m_kind = Kind::Unknown;
        return path;
      }
      if (i < m_text.size())
        path += m_text[i];
    }
    m_kind = Kind::OpenPath;
    return path;
  }

  std::string_view m_form;
  std::string_view m_text;
  std::string m_value;
  bool m_hasValue = false;
  Kind m_kind = Kind::Whole;
};

} // namespace

ParsedLine parseLine(std::string_view line) {
  const std::optional<LogLevel> level = levelOf(line);
  if (!level)
    return {.kind = Kind::Unknown};
  line.remove_prefix(markSize);
  for (const MessageForm& form : messageForms) {
    const bool isPossible = form.level == *level && line.starts_with(form.text.front());
    if (!isPossible || form.message == Message::ErrorText)
      continue;
    FormReader reader(form.text, line);
    if (const Kind kind = reader.read(); kind != Kind::Unknown)
      return {.kind = kind, .message = form.message, .value = reader.takeValue()};
  }
  if (*level == LogLevel::Error)
    return {.kind = Kind::Whole, .message = Message::ErrorText, .value = std::string(line)};
  return {.kind = Kind::Unknown};
}

} // namespace LogReport
