// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/docs/man/message_texts.h"

#include <algorithm>
#include <cctype>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

constexpr char placeholder = '\0';

bool isPiece(std::string_view text) {
  const auto isLetter = [](unsigned char character) { return std::isalpha(character) != 0; };
  return text.find(' ') != text.npos && std::ranges::count_if(text, isLetter) >= 2;
}

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

std::string withoutEscapes(std::string text) {
  for (const auto& [escape, meaning] : {std::pair{"\\(aq", "'"}, {"\\-", "-"}, {"\\&", ""}})
    text = replaceAll(std::move(text), escape, meaning);
  if (text.find('\\') != text.npos)
    throw std::runtime_error("an unknown escape in the page: " + text);
  return text;
}

/// The words of a macro line; text in double quotes is one word.
std::vector<std::string> wordsOf(const std::string& line) {
  static const std::regex word("\"([^\"]*)\"|([^ \"]+)");
  std::vector<std::string> words;
  for (std::sregex_iterator match(line.begin(), line.end(), word), end; match != end; ++match)
    words.push_back((*match)[1].matched ? (*match)[1] : (*match)[2]);
  return words;
}

/// The log line of an .It line, with each value as a placeholder; in double quotes after Qq.
std::string shownLine(const std::string& line) {
  std::string shown;
  bool isSpaceDue = false, isQuoted = false;
  std::string macro;
  for (const std::string& word : wordsOf(line)) {
    if (word == "Ns") {
      isSpaceDue = false;
    } else if (word == "Qq") {
      isQuoted = true;
    } else if (word == "Sy" || word == "Ar") {
      macro = word;
    } else {
      const std::string value = isQuoted ? std::string{'"', placeholder, '"'} : std::string{placeholder};
      shown += (isSpaceDue ? " " : "") + (macro == "Ar" ? value : withoutEscapes(word));
      isSpaceDue = true;
      isQuoted = false;
    }
  }
  return shown;
}

PageMessage messageFrom(const std::string& shown) {
  PageMessage message;
  std::string piece;
  const auto finishPiece = [&] {
    if (isPiece(piece))
      message.texts.insert(piece);
    piece.clear();
  };
  for (std::size_t i = 0; i < shown.size(); ++i) {
    if (shown[i] == placeholder) {
      message.pattern += ".*";
      finishPiece();
    } else {
      message.pattern += std::string("[](){}.*+?^$|\\").find(shown[i]) == std::string::npos ? "" : "\\";
      message.pattern += shown[i];
      // The double quotes belong to the value.
      if (shown[i] != '"')
        piece += shown[i];
    }
  }
  finishPiece();
  return message;
}

/// Reads C++ source code for its string literals.
class SourceReader {
public:
  explicit SourceReader(std::string_view source) : m_rest(source) {}

  MessageTexts read() {
    while (!m_rest.empty()) {
      if (m_rest.starts_with("//") || m_rest.starts_with("#include"))
        skipTo("\n");
      else if (m_rest.starts_with("/*"))
        skipTo("*/");
      else if (m_rest.front() == '"')
        m_literal += readLiteral('"');
      else
        readOther();
    }
    return std::move(m_texts);
  }

private:
  void skip(std::size_t count) { m_rest.remove_prefix(std::min(count, m_rest.size())); }
  void skipTo(std::string_view end) {
    const std::size_t at = m_rest.find(end);
    skip(at == m_rest.npos ? m_rest.size() : at + end.size());
  }

  std::string readLiteral(char quote) {
    std::string text;
    for (skip(1); !m_rest.empty() && m_rest.front() != quote; skip(1)) {
      if (m_rest.front() == '\\')
        skip(1); // an escaped quote is the only escape in messages
      text += m_rest.front();
    }
    skip(1);
    return text;
  }

  void readOther() {
    const char character = m_rest.front();
    if (std::isspace(static_cast<unsigned char>(character)) != 0)
      return skip(1); // the literal may continue after it
    finishLiteral();
    if (std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_')
      return readWord();
    if (character == '\'')
      readLiteral('\'');
    else
      skip(1);
  }

  /// Numbers count as words, with the quotes between their digits.
  void readWord() {
    const auto end = std::ranges::find_if(m_rest, [](unsigned char character) {
      return std::isalnum(character) == 0 && character != '_' && character != ':' && character != '\'';
    });
    skip(static_cast<std::size_t>(end - m_rest.begin()));
  }

  void finishLiteral() {
    if (isPiece(m_literal))
      m_texts.insert((std::isupper(static_cast<unsigned char>(m_literal[0])) != 0 ? "[E] " : "") + m_literal);
    m_literal.clear();
  }

  std::string_view m_rest;
  std::string m_literal;
  MessageTexts m_texts;
};

} // namespace

std::vector<PageMessage> messagesOfPage(const std::string& page) {
  static const std::string start = ".It Sy \"[";
  std::vector<PageMessage> messages;
  std::istringstream lines(page);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(start))
      messages.push_back(messageFrom(shownLine(line.substr(4))));
  return messages;
}

MessageTexts textsOfForm(const MessageForm& form) {
  std::string mark = form.level == LogLevel::Info ? "[I] " : form.level == LogLevel::Warning ? "[W] " : "[E] ";
  MessageTexts texts;
  std::string_view rest = form.text;
  while (!rest.empty()) {
    const std::string piece(rest.substr(0, rest.find('{')));
    if (isPiece(piece))
      texts.insert(std::exchange(mark, "") + piece);
    rest.remove_prefix(piece.size());
    rest.remove_prefix(rest.empty() ? 0 : rest.find('}') + 1);
  }
  return texts;
}

MessageTexts textsOfSource(std::string_view source) {
  return SourceReader(source).read();
}
