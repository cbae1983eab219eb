// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-log-report/read_log.h"

#include "tools/krv-log-report/journal.h"

#include <istream>
#include <stdexcept>
#include <string>
#include <utility>

namespace LogReport {

namespace {

/// Reads lines without keeping more of a line than a message can need: a name has at most 1 MiB.
class LineReader {
public:
  explicit LineReader(std::istream& input) : m_input(*input.rdbuf()) {}

  /// Returns false at the end of the input.
  bool next(Line& line) {
    using Traits = std::streambuf::traits_type;
    line = {.number = line.number + 1, .text = {}};
    auto character = m_input.sbumpc();
    if (Traits::eq_int_type(character, Traits::eof()))
      return false;
    for (; !Traits::eq_int_type(character, Traits::eof()) && character != '\n'; character = m_input.sbumpc())
      if (line.text.size() < longestLine)
        line.text += Traits::to_char_type(character);
    return true;
  }

private:
  static constexpr std::size_t longestLine = 16 * 1024 * 1024; // the journal writes up to 4 characters for a byte

  std::streambuf& m_input;
};

} // namespace

void readLog(std::istream& input, Sink& sink) {
  LineReader lines(input);
  Line line{.number = 0, .text = {}};
  if (!lines.next(line))
    return;
  if (line.text.starts_with('{')) {
    Journal journal(sink);
    do
      journal.add(line);
    while (lines.next(line));
    return journal.finish();
  }
  RunReader reader(sink);
  do
    reader.add(line);
  while (lines.next(line));
  reader.finish();
}

} // namespace LogReport
