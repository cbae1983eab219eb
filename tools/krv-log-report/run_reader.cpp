// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-log-report/run_reader.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace LogReport {

namespace {

using Kind = ParsedLine::Kind;

/// A path has at most 4096 bytes, each of which may be escaped, and the name of an entry at most 255 line breaks.
constexpr std::size_t longestOpenPath = 10'000;
constexpr std::size_t mostLinesOfAPath = 300;

void append(std::string& detail, std::string_view separator, std::string_view text) {
  constexpr std::size_t longest = 500;
  if (detail.size() > longest)
    return;
  if (!detail.empty())
    detail += separator;
  detail += text.substr(0, longest);
  if (detail.size() > longest)
    detail.replace(longest, detail.npos, "...");
}

/// A remark without mark and path: the path is always that of the entry or of the registry.
std::string remarkOf(const ParsedLine& parsed) {
  if (parsed.message == Message::ErrorText || parsed.message == Message::InstallationError)
    return parsed.value;
  const std::string_view form = messageForms[static_cast<std::size_t>(parsed.message)].text;
  std::string remark(form.substr(0, form.find(": {path}")));
  if (const std::size_t place = remark.find("{text}"); place != remark.npos)
    remark.replace(place, std::string_view("{text}").size(), parsed.value);
  return remark;
}

bool mayHaveSeveralLines(std::optional<Message> message) {
  return message && placeOf(*message).kind == Place::Kind::Text;
}

std::string joined(const std::vector<Line>& lines) {
  std::string text = lines.front().text;
  for (std::size_t i = 1; i < lines.size(); ++i)
    text.append("\n").append(lines[i].text);
  return text;
}

} // namespace

void RunReader::add(Line line) {
  if (!m_open.empty())
    return addToOpenPath(std::move(line));
  const ParsedLine parsed = parseLine(line.text);
  switch (parsed.kind) {
  case Kind::Whole:
    return take(parsed, line);
  case Kind::OpenPath:
    m_open.push_back(std::move(line));
    return;
  case Kind::Unknown:
    return addUnknown(line);
  }
}

void RunReader::addToOpenPath(Line line) {
  const Time time = line.time;
  m_open.push_back(std::move(line));
  const std::string text = joined(m_open);
  const ParsedLine parsed = parseLine(text);
  if (parsed.kind == Kind::OpenPath && text.size() <= longestOpenPath && m_open.size() <= mostLinesOfAPath)
    return;
  if (parsed.kind != Kind::Whole)
    return giveUpOpenPath();
  const std::size_t number = std::exchange(m_open, {}).front().number;
  take(parsed, {number, text, time});
}

/// The first of the open lines was cut; the others may be whole.
void RunReader::giveUpOpenPath() {
  std::vector<Line> lines = std::exchange(m_open, {});
  m_sink.takeUnknown(lines.front());
  for (std::size_t i = 1; i < lines.size(); ++i)
    add(std::move(lines[i]));
}

/// A text may have several lines, of which only the first has its mark.
void RunReader::addUnknown(const Line& line) {
  if (!m_held.empty())
    append(m_held.back(), "\n", line.text);
  else if (!m_hasEnded && mayHaveSeveralLines(m_block.last))
    append(m_block.detail, "\n", line.text);
  else
    m_sink.takeUnknown(line);
}

void RunReader::take(const ParsedLine& parsed, const Line& line) {
  if (m_hasEnded)
    takeAfterEnd(parsed, line);
  else
    takeInRun(parsed, line);
}

void RunReader::takeAfterEnd(const ParsedLine& parsed, const Line& line) {
  if (parsed.message == Message::ErrorText) {
    m_held.emplace_back();
    append(m_held.back(), "", parsed.value);
    return;
  }
  std::vector<std::string> texts = std::exchange(m_held, {});
  if (m_runs == Runs::One) {
    m_run.end = End::Ambiguous;
    m_hasEnded = false;
    return takeInRun(parsed, line);
  }
  const bool hasAbort = !texts.empty() && (m_isInterrupted || texts.size() > placeOf(parsed.message).takenTexts);
  if (hasAbort) {
    abortBy(texts.front());
    texts.erase(texts.begin());
  }
  handOut();
  for (const std::string& text : texts)
    takeInRun({.kind = Kind::Whole, .message = Message::ErrorText, .value = text}, line);
  takeInRun(parsed, line);
}

void RunReader::takeInRun(const ParsedLine& parsed, const Line& line) {
  const Place place = placeOf(parsed.message);
  const bool isSkip = parsed.message == Message::Skipping && m_block.causePath == parsed.value;
  if (m_block.cause && !isSkip)
    contradictCause();
  m_run.time = line.time;
  switch (place.kind) {
  case Place::Kind::Text:
  case Place::Kind::Remark:
    append(m_block.detail, "; ", remarkOf(parsed));
    break;
  case Place::Kind::Cause:
    m_block.cause = place.reason;
    m_block.causePath = parsed.value;
    break;
  case Place::Kind::Outcome:
    return takeOutcome(place, parsed, line);
  case Place::Kind::End:
    return takeEnd(place, parsed, line);
  case Place::Kind::Elsewhere:
    return m_sink.takeUnknown(line);
  }
  m_block.last = parsed.message;
}

void RunReader::takeOutcome(const Place& place, const ParsedLine& parsed, const Line& line) {
  const Block block = std::exchange(m_block, {});
  const std::optional<std::string> entry = entryOf(parsed.value);
  if (!entry)
    return m_sink.takeUnknown(line);
  Row row{*entry, place.outcome, place.reason, block.detail, line.time};
  if (place.outcome == Outcome::Skipped)
    row.reason = block.cause.value_or(Reason::None);
  const bool hasItsLines = place.outcome == Outcome::Skipped  ? block.cause.has_value()
                           : place.outcome == Outcome::Failed ? block.last == Message::InstallationError
                                                              : true;
  if (!hasItsLines)
    row.outcome = Outcome::Ambiguous;
  addRow(std::move(row));
}

void RunReader::takeEnd(const Place& place, const ParsedLine& parsed, const Line& line) {
  const bool isEarly = place.end != End::Complete;
  std::uint64_t seconds = 0;
  const char* const last = parsed.value.data() + parsed.value.size();
  const bool isNumber = std::from_chars(parsed.value.data(), last, seconds).ec == std::errc();
  // A run that fails before its first package has no rows, and its reason in the line before.
  const bool fails = m_run.rows.empty() && m_block.last == Message::ErrorText;
  if (isEarly ? !fails : !isNumber)
    return m_sink.takeUnknown(line);
  if (!isEarly)
    m_run.seconds = seconds;
  m_isInterrupted = !isEarly && m_block.last;
  if (m_run.end == End::Cut)
    m_run.end = m_isInterrupted ? End::Aborted : place.end;
  m_run.detail = std::exchange(m_block, {}).detail;
  m_hasEnded = true;
}

/// The file name in `path`, if this is a path of a package of this run.
std::optional<std::string> RunReader::entryOf(std::string_view path) {
  constexpr std::string_view folder = "usr/share/krv/pre-install-apps";
  const std::size_t slash = path.rfind('/');
  if (slash == path.npos || slash + 1 == path.size())
    return std::nullopt;
  const std::string_view directory = path.substr(0, slash);
  const bool isFolder =
      directory.ends_with(folder) && (directory == folder || directory.ends_with("/" + std::string(folder)));
  if (!isFolder || (!m_directory.empty() && m_directory != directory))
    return std::nullopt;
  m_directory = directory;
  return std::string(path.substr(slash + 1));
}

void RunReader::addRow(Row row) {
  if (const auto found = m_rowOf.find(row.entry); found != m_rowOf.end()) {
    found->second->outcome = Outcome::Ambiguous;
    found->second->reason = Reason::None;
    return;
  }
  if (row.outcome == Outcome::Ambiguous)
    row.reason = Reason::None;
  m_run.rows.push_back(std::move(row));
  m_rowOf.emplace(m_run.rows.back().entry, &m_run.rows.back());
}

/// The line that skips the package does not follow.
void RunReader::contradictCause() {
  if (const std::optional<std::string> entry = entryOf(m_block.causePath))
    addRow({*entry, Outcome::Ambiguous, Reason::None, m_block.detail, m_run.time});
  m_block = {};
}

void RunReader::abortBy(const std::string& text) {
  m_run.end = m_run.end == End::Ambiguous ? End::Ambiguous : End::Aborted;
  append(m_run.detail, "; ", text);
}

void RunReader::finish() {
  while (!m_open.empty())
    giveUpOpenPath();
  if (!m_held.empty())
    abortBy(m_held.front());
  if (!m_hasEnded && m_block.cause) {
    if (const std::optional<std::string> entry = entryOf(m_block.causePath))
      addRow({*entry, Outcome::Unknown, *m_block.cause, m_block.detail, m_run.time});
  } else if (!m_hasEnded) {
    m_run.detail = m_block.detail;
  }
  handOut();
}

void RunReader::handOut() {
  const bool isEmpty = m_run.rows.empty() && !m_hasEnded && m_run.detail.empty();
  m_run.origin = m_origin;
  if (!isEmpty)
    m_sink.takeRun(m_run);
  m_rowOf.clear();
  m_run = {};
  m_directory.clear();
  m_block = {};
  m_held.clear();
  m_hasEnded = false;
  m_isInterrupted = false;
}

} // namespace LogReport
