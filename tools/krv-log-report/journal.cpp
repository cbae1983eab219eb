// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-log-report/journal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

namespace LogReport {

namespace {

using Json = nlohmann::json;

constexpr std::string_view unit = "krv-pre-installer.service";

/// The fields that are read; an entry has thirty others.
constexpr auto fields =
    std::to_array<std::string_view>({"MESSAGE", "_SYSTEMD_UNIT", "_MACHINE_ID", "_BOOT_ID", "_SYSTEMD_INVOCATION_ID",
                                     "__REALTIME_TIMESTAMP", "_LINE_BREAK"});

/// Returns an entry, or a discarded value if `text` is no JSON object.
Json parseEntry(const std::string& text) {
  const auto isRead = [](int, Json::parse_event_t event, const Json& value) {
    return event != Json::parse_event_t::key ||
           std::ranges::find(fields, value.get_ref<const std::string&>()) != fields.end();
  };
  Json entry = Json::parse(text, isRead, false);
  return entry.is_object() ? entry : Json(Json::value_t::discarded);
}

std::string textOf(const Json& entry, const char* field) {
  const auto found = entry.find(field);
  return found != entry.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// A text that is not UTF-8 or not printable is an array of its bytes; one that is too long without --all is null.
std::optional<std::string> messageOf(const Json& entry) {
  const auto found = entry.find("MESSAGE");
  if (found == entry.end() || (!found->is_string() && !found->is_array()))
    return std::nullopt;
  if (found->is_string())
    return found->get<std::string>();
  std::string bytes;
  for (const Json& byte : *found) {
    if (!byte.is_number_integer() || byte < 0 || byte > 255)
      return std::nullopt;
    bytes += static_cast<char>(byte.get<int>());
  }
  return bytes;
}

Time timeOf(const Json& entry) {
  const std::string text = textOf(entry, "__REALTIME_TIMESTAMP");
  std::uint64_t time = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), time);
  return error == std::errc() && end == text.data() + text.size() ? Time(time) : std::nullopt;
}

} // namespace

void Journal::add(const Line& line) {
  const Json entry = parseEntry(line.text);
  if (entry.is_discarded())
    return m_sink.takeUnknown(line);
  if (textOf(entry, "_SYSTEMD_UNIT") != unit)
    return; // systemd's own messages about the unit, for example
  const Origin origin{textOf(entry, "_MACHINE_ID"), textOf(entry, "_BOOT_ID"), textOf(entry, "_SYSTEMD_INVOCATION_ID")};
  RunReader& reader = readerOf(origin);
  const std::optional<std::string> message = messageOf(entry);
  if (!message)
    return m_sink.takeUnknown(line);
  Line& part = m_parts[origin.machine];
  part = {part.text.empty() ? line.number : part.number, part.text + *message, timeOf(entry)};
  if (textOf(entry, "_LINE_BREAK") == "line-max")
    return;
  reader.add(std::exchange(part, {}));
}

void Journal::finish() {
  for (auto& [machine, reader] : m_readers)
    reader->finish();
  m_readers.clear();
}

RunReader& Journal::readerOf(const Origin& origin) {
  std::unique_ptr<RunReader>& reader = m_readers[origin.machine];
  if (reader && reader->origin() == origin)
    return *reader;
  if (reader)
    reader->finish();
  m_parts.erase(origin.machine);
  reader = std::make_unique<RunReader>(m_sink, origin);
  return *reader;
}

} // namespace LogReport
