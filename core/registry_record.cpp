// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry_record.h"

#include "driver/log/log_message.h"

#include <boost/lexical_cast/try_lexical_convert.hpp>

#include <unordered_map>
#include <utility>

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

/// The values of a line as they stand there; empty means absent or empty alike.
struct Fields {
  std::string_view timestamp;
  std::string_view event;
  std::string_view package;
  std::string_view keyId;
  std::vector<std::string> previousKeys;
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

/// When `piece` begins with `key`, puts the rest into `value`.
bool take(std::string_view piece, std::string_view key, std::string_view& value) {
  if (!piece.starts_with(key))
    return false;
  value = piece.substr(key.size());
  return true;
}

void readPiece(std::string_view piece, Fields& fields) {
  if (take(piece, timestampKey, fields.timestamp) || take(piece, eventKey, fields.event) ||
      take(piece, packageKey, fields.package) || take(piece, keyIdKey, fields.keyId))
    return;
  std::string_view keys;
  if (take(piece, previousKeysKey, keys))
    split(keys, keySeparator, [&](std::string_view key) { fields.previousKeys.emplace_back(key); });
  else
    LogMessage(LogLevel::Warning) << "Registry record contains unknown key: " << piece;
}

std::nullopt_t reject(std::string_view reason, std::string_view subject = {}) {
  LogMessage(LogLevel::Warning) << reason << subject;
  return std::nullopt;
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

std::optional<RegistryRecord> parseRecord(std::string_view line) {
  Fields fields;
  split(line, " ", [&](std::string_view piece) { readPiece(piece, fields); });

  if (fields.timestamp.empty())
    return reject("Registry record doesn't contains timestamp");
  if (fields.event.empty())
    return reject("Registry record doesn't contains event type");
  const auto event = eventBySpelling.find(fields.event);
  if (event == eventBySpelling.end())
    return reject("Registry record contains unknown event type");
  if (fields.package.empty())
    return reject("Registry record doesn't contains package id");
  if (fields.keyId.empty())
    return reject("Registry record doesn't contains key id");
  std::int64_t timestamp = 0;
  if (!boost::conversion::try_lexical_convert(fields.timestamp.data(), fields.timestamp.size(), timestamp))
    return reject("Couldn't parse timestamp from registry record: ", fields.timestamp);

  return RegistryRecord{event->second, timestamp, std::string(fields.package), std::string(fields.keyId),
                        std::move(fields.previousKeys)};
}

} // namespace Core::KRV
