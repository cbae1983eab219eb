// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-log-report/run_reader.h"

#include <cstddef>
#include <iosfwd>
#include <memory>

namespace LogReport {

enum class Format { Text, Json };

/// Writes each run to a stream when it gets it, and a notice on standard error for each of the first unknown lines.
class Output : public Sink {
public:
  Output(std::ostream& output, std::ostream& notices) : m_output(output), m_notices(notices) {}
  static std::unique_ptr<Output> make(Format format, std::ostream& output, std::ostream& notices);

  void takeUnknown(const Line& line) final;
  /// Tells how many unknown lines there were, if not each had its notice.
  void finish();

protected:
  std::ostream& output() { return m_output; }

private:
  std::ostream& m_output;
  std::ostream& m_notices;
  std::size_t m_unknown = 0;
};

} // namespace LogReport
