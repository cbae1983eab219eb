// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry_record.h"
#include "fuzz/support.h"

/// A record is the same after printing and parsing it again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto record = Core::KRV::parseRecord(Fuzz::begin(data, size));
  Fuzz::require(record || Fuzz::loggedLines() > 0, "a rejected line is explained in the log");
  if (!record)
    return 0;
  Fuzz::accept();
  const std::size_t before = Fuzz::loggedLines();
  const auto again = Core::KRV::parseRecord(toString(*record));
  Fuzz::require(again == record, "the printed record reads as the same record");
  Fuzz::require(Fuzz::loggedLines() == before, "the printed record reads without a warning");
  return 0;
}
