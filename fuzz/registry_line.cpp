// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry_record.h"
#include "fuzz/support.h"

/// A record is the same after printing and parsing it again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto record = Core::KRV::parseRecord(Fuzz::begin(data, size));
  Fuzz::require(record || Fuzz::loggedLines() > 0, "the log explains a rejected line");
  if (!record)
    return 0;
  Fuzz::accept();
  const std::size_t before = Fuzz::loggedLines();
  const auto again = Core::KRV::parseRecord(toString(*record));
  Fuzz::require(again == record, "the printed record parses to the same record");
  Fuzz::require(Fuzz::loggedLines() == before, "the printed record parses without a warning");
  return 0;
}
