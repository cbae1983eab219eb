// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-log-report/described.h"

#include "tools/krv-log-report/names.h"
#include "tools/krv-log-report/read_log.h"

#include <filesystem>
#include <sstream>

namespace {

std::string suffix(const std::string& text) {
  return text.empty() ? "" : ": " + text;
}

class Describer : public LogReport::Sink {
public:
  void takeRun(const LogReport::Run& run) override {
    for (const LogReport::Row& row : run.rows) {
      m_text += row.entry + ": " + std::string(nameOf(row.outcome));
      if (row.reason != LogReport::Reason::None)
        m_text += " (" + std::string(nameOf(row.reason)) + ")";
      m_text += suffix(row.detail) + "\n";
    }
    m_text += std::string(nameOf(run.end)) + (run.seconds ? ": " + std::to_string(*run.seconds) + " s" : "") +
              suffix(run.detail) + "\n";
  }

  void takeUnknown(const LogReport::Line& line) override { m_text += "unknown: " + std::to_string(line.number) + "\n"; }

  const std::string& text() const { return m_text; }

private:
  std::string m_text;
};

std::string lineOf(const std::string& text, const std::string& entry) {
  std::ostringstream line;
  line << text << std::filesystem::path(pathOf(entry)) << '\n';
  return line.str();
}

} // namespace

std::string described(const std::string& log) {
  Describer describer;
  std::istringstream lines(log);
  LogReport::readLog(lines, describer);
  return describer.text();
}

std::string pathOf(const std::string& entry) {
  return "/usr/share/krv/pre-install-apps/" + entry;
}

std::string installed(const std::string& entry) {
  return lineOf("[I] The package successfully pre-installed: ", entry);
}

std::string failed(const std::string& reason, const std::string& entry) {
  return "[E] Package installation error: " + reason + "\n" + lineOf("[E] Failed to pre-install package: ", entry);
}

std::string skipped(const std::string& entry) {
  return lineOf("[I] Skipping package pre-installation: ", entry);
}

std::string notNewer(const std::string& entry) {
  return lineOf("[E] The package version is lower than or equal to the version of an already installed package: ",
                entry) +
         skipped(entry);
}

std::string unreadable(const std::string& reason, const std::string& entry) {
  return "[E] " + reason + "\n" + lineOf("[E] Failed to read RPM package: ", entry) + skipped(entry);
}
