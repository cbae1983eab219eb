// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry_record.h"

#include "driver/log/messages.h"

#include <charconv>
#include <system_error>
#include <unordered_map>

namespace Core::KRV {

namespace {

using Event = RegistryRecord::Event;

const std::unordered_map<Event, std::string_view> spellingByEvent = {
    {Event::Install, "I"},
    {Event::Update, "U"},
    {Event::Remove, "R"},
};

const std::unordered_map<std::string_view, Event> eventBySpelling = {
    {"I", Event::Install},
    {"U", Event::Update},
    {"R", Event::Remove},
};

constexpr std::string_view timestampKey = "timestamp=";
constexpr std::string_view eventKey = "event=";
constexpr std::string_view packageKey = "package=";
constexpr std::string_view keyIdKey = "keyid=";
constexpr std::string_view previousKeysKey = "prev-keyids=";
constexpr std::string_view keySeparator = "->";

/// The values of a line, not parsed. Empty means absent or empty.
struct Fields {
  std::string_view timestamp;
  std::string_view event;
  std::string_view package;
  std::string_view keyId;
};

/// Calls `use` with each non-empty piece of `text` between the separators.
template <typename Use>
void split(std::string_view text, std::string_view separator, Use use) {
  while (!text.empty()) {
    const std::size_t end = text.find(separator);
    const std::string_view piece = text.substr(0, end);
    if (!piece.empty())
      use(piece);
    if (end == text.npos)
      return;
    text.remove_prefix(end + separator.size());
  }
}

void readPiece(std::string_view piece, Fields& fields, std::vector<std::string>& previousKeys) {
  const std::size_t valueBegin = piece.find('=') + 1; // 0 without "=", so the key is empty and matches none
  const std::string_view key = piece.substr(0, valueBegin);
  const std::string_view value = piece.substr(valueBegin);
  if (key == timestampKey)
    fields.timestamp = value;
  else if (key == eventKey)
    fields.event = value;
  else if (key == packageKey)
    fields.package = value;
  else if (key == keyIdKey)
    fields.keyId = value;
  else if (key == previousKeysKey)
    split(value, keySeparator, [&](std::string_view previous) { previousKeys.emplace_back(previous); });
  else
    logLine<Message::UnknownRecordKey>(piece);
}

/// Accepts at most one sign, then only digits. std::from_chars() accepts "-" but not "+", so "+" is removed first, and
/// "+-" is refused.
std::optional<std::int64_t> parseTimestamp(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-'))
      return std::nullopt;
  }
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

template <Message reason, typename... Subject>
bool reject(const Subject&... subject) {
  logLine<reason>(subject...);
  return false;
}

} // namespace

std::string toString(const RegistryRecord& record) {
  std::string line(timestampKey);
  line += std::to_string(record.timestamp);
  line.append(" ").append(eventKey).append(spellingByEvent.at(record.event));
  line.append(" ").append(packageKey).append(record.packageId);
  line.append(" ").append(keyIdKey).append(record.keyId);
  if (!record.prevKeyIds.empty())
    line += ' ';
  std::string_view before = previousKeysKey;
  for (const std::string& key : record.prevKeyIds) {
    line.append(before).append(key);
    before = keySeparator;
  }
  return line;
}

bool parseRecord(std::string_view line, RegistryRecord& record) {
  Fields fields;
  record.prevKeyIds.clear();
  split(line, " ", [&](std::string_view piece) { readPiece(piece, fields, record.prevKeyIds); });

  if (fields.timestamp.empty())
    return reject<Message::RecordWithoutTimestamp>();
  if (fields.event.empty())
    return reject<Message::RecordWithoutEvent>();
  const auto event = eventBySpelling.find(fields.event);
  if (event == eventBySpelling.end())
    return reject<Message::RecordWithUnknownEvent>();
  if (fields.package.empty())
    return reject<Message::RecordWithoutPackage>();
  if (fields.keyId.empty())
    return reject<Message::RecordWithoutKey>();
  const std::optional<std::int64_t> timestamp = parseTimestamp(fields.timestamp);
  if (!timestamp)
    return reject<Message::RecordTimestampNotParsed>(fields.timestamp);

  record.event = event->second;
  record.timestamp = *timestamp;
  record.packageId = fields.package;
  record.keyId = fields.keyId;
  return true;
}

std::optional<RegistryRecord> parseRecord(std::string_view line) {
  std::optional<RegistryRecord> record(std::in_place);
  if (!parseRecord(line, *record))
    record.reset();
  return record;
}

} // namespace Core::KRV
