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

/// The file name in `path`, if this is a path of a package.
std::optional<std::string> entryOf(std::string_view path) {
  constexpr std::string_view folder = "/usr/share/krv/pre-install-apps/";
  const std::size_t begin = path.rfind('/') + 1;
  const std::string_view directory = path.substr(0, begin);
  const bool isRelative = directory == folder.substr(1); // KRV_ROOT_FS is empty
  if (begin == path.size() || (!isRelative && !directory.ends_with(folder)))
    return std::nullopt;
  return std::string(path.substr(begin));
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
  // An error's text may be any text, but the first line is not one.
  if (parsed.kind != Kind::Whole || parsed.message == Message::ErrorText)
    return giveUpOpenPath();
  const std::size_t number = std::exchange(m_open, {}).front().number;
  take(parsed, {number, text, time});
}

/// The first of the open lines was cut; the others may be whole.
void RunReader::giveUpOpenPath() {
  std::vector<Line> lines = std::exchange(m_open, {});
  addUnknown(lines.front());
  for (std::size_t i = 1; i < lines.size(); ++i)
    add(std::move(lines[i]));
}

/// A text may have several lines, of which only the first has its mark.
void RunReader::addUnknown(const Line& line) {
  if (m_hasEnded && m_run.end == End::Aborted)
    append(m_run.detail, "\n", line.text);
  else if (mayHaveSeveralLines(m_block.last))
    append(m_block.detail, "\n", line.text);
  else
    m_sink.takeUnknown(line);
}

void RunReader::take(const ParsedLine& parsed, const Line& line) {
  const Place place = placeOf(parsed.message);
  if (place.kind == Place::Kind::Elsewhere)
    return addUnknown(line);
  const bool mayBeAborted = m_run.end == End::Complete || m_run.end == End::Aborted;
  if (m_hasEnded && mayBeAborted && parsed.message == Message::ErrorText) {
    m_run.end = End::Aborted;
    return append(m_run.detail, "; ", parsed.value);
  }
  if (m_hasEnded)
    m_run.end = End::Ambiguous;
  m_hasEnded = false;
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
    break;
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
  const bool isInterrupted = !isEarly && m_block.last;
  if (m_run.end == End::Cut)
    m_run.end = isInterrupted ? End::Aborted : place.end;
  m_run.detail = std::exchange(m_block, {}).detail;
  m_hasEnded = true;
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

void RunReader::finish() {
  while (!m_open.empty())
    giveUpOpenPath();
  if (const std::optional<std::string> entry = m_block.cause ? entryOf(m_block.causePath) : std::nullopt)
    addRow({*entry, Outcome::Unknown, *m_block.cause, m_block.detail, m_run.time});
  else if (!m_hasEnded)
    m_run.detail = m_block.detail;
  if (!m_run.rows.empty() || m_run.end != End::Cut || !m_run.detail.empty())
    m_sink.takeRun(m_run);
}

} // namespace LogReport
