// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/faults/crowd.h"

#include <array>
#include <stdexcept>

namespace Crowd {

using Core::KRV::RegistryRecord;
using Event = RegistryRecord::Event;

namespace {

/// Install and Remove records replace the history of their package; an Update keeps the Install record.
void add(Records& records, const RegistryRecord& added) {
  std::erase_if(records, [&](const RegistryRecord& older) {
    return older.packageId == added.packageId && (added.event != Event::Update || older.event != Event::Install);
  });
  records.push_back(added);
}

} // namespace

std::string writerName(int writer) {
  return "writer" + std::to_string(writer);
}

RegistryRecord recordAt(const std::string& writer, int position) {
  constexpr int packages = 4;
  constexpr std::array events = {Event::Install, Event::Update, Event::Update, Event::Remove};
  const auto round = static_cast<std::size_t>(position / packages);
  return {
      events[round % events.size()], position, "package" + std::to_string(position % packages) + writer, writer, {}};
}

Records recordsAfter(const std::string& writer, int count) {
  Records records;
  for (int position = 0; position < count; ++position)
    add(records, recordAt(writer, position));
  return records;
}

Records recordsOf(const std::string& writer) {
  Records records;
  const auto take = [&](const RegistryRecord& record) {
    if (record.keyId == writer)
      records.push_back(record);
  };
  if (!Core::KRV::Registry().foreachRecord(take))
    throw std::runtime_error("the registry cannot be read");
  return records;
}

} // namespace Crowd
