// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/command_line.h"
#include "common/text/printable.h"
#include "tools/krv-image-check/catalogue.h"
#include "tools/krv-image-check/check.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/options.h"
#include "tools/krv-image-check/output_html.h"
#include "tools/krv-image-check/output_json.h"
#include "tools/krv-image-check/output_sarif.h"
#include "tools/krv-image-check/output_text.h"
#include "tools/krv-image-check/workers.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include <unistd.h>

namespace {

using namespace ImageCheck;

constexpr int findingsStatus = 1;
constexpr int failureStatus = 2;

bool mayPaint(const Options& options) {
  const char* const noColour = std::getenv("NO_COLOR");
  const bool isForbidden = noColour != nullptr && *noColour != '\0';
  return !options.output && !isForbidden && isatty(STDOUT_FILENO) != 0;
}

std::string format(const Report& report, const Options& options) {
  switch (options.format) {
  case Format::Json:
    return toJson(report, KRV_VERSION);
  case Format::Sarif:
    return toSarif(report, KRV_VERSION);
  case Format::Html:
    return toHtml(report, KRV_VERSION);
  case Format::Text:
    break;
  }
  return toText(report, mayPaint(options) ? Colour::On : Colour::Off);
}

void write(const std::string& text, const Options& options) {
  std::ofstream file;
  if (options.output)
    file.open(*options.output, std::ios::binary | std::ios::trunc);
  std::ostream& output = options.output ? file : std::cout;
  output << text << std::flush;
  if (!output)
    throw std::runtime_error((options.output ? *options.output : "standard output") + " cannot be written");
}

/// Shows the progress on a terminal, in one line that is removed at the end.
class ProgressLine {
public:
  ~ProgressLine() {
    if (m_isShown)
      std::cerr << "\r\033[K" << std::flush;
  }

  void show(std::size_t done, std::size_t all) {
    if (!m_isTerminal)
      return;
    m_isShown = true;
    std::cerr << "\r\033[Kchecking " << done << " of " << all << std::flush;
  }

private:
  bool m_isTerminal = isatty(STDERR_FILENO) != 0;
  bool m_isShown = false;
};

Report checkWithProgress(const Options& options) {
  ProgressLine line;
  return check(options, [&](std::size_t done, std::size_t all) { line.show(done, all); });
}

bool fails(const Report& report, Severity failOn) {
  return std::ranges::any_of(report.findings, [&](const Finding& finding) {
    return !finding.waivedBy && explain(finding.id).severity <= failOn;
  });
}

int perform(const Options& options) {
  if (options.explainedId) {
    write(explanationText(*options.explainedId), options);
    return EXIT_SUCCESS;
  }
  const Report report = checkWithProgress(options);
  write(format(report, options), options);
  return fails(report, options.failOn) ? findingsStatus : EXIT_SUCCESS;
}

/// Keeps the settings of the machine and of the user away from the libraries; those of RPM are not read.
void forgetTheMachine() {
  setenv("OPENSSL_CONF", "/dev/null", 1);
  // The OpenPGP library of librpm 4.20 reads no file if this is empty, and takes its built-in policy.
  setenv("RPM_SEQUOIA_CRYPTO_POLICY", "", 1);
}

} // namespace

int main(int count, char** arguments) {
  try {
    Options options;
    CLI::App app("Tell what the packages of a system image will do on each device, and every mistake in them.",
                 "krv-image-check");
    app.footer("Exit status: 0 nothing found at or above --fail-on, 1 findings, 2 wrong usage or not checked.");
    addOptions(app, options);
    if (const auto status = Common::parseCommandLine(app, count, arguments))
      return *status == EXIT_SUCCESS ? EXIT_SUCCESS : failureStatus;
    forgetTheMachine();
    noticeSignals();
    return perform(options);
  } catch (const Interrupted& interruption) {
    std::signal(interruption.signal, SIG_DFL);
    std::raise(interruption.signal);
  } catch (const std::exception& error) {
    std::cerr << "krv-image-check: " << Common::printable(error.what()) << '\n';
  }
  return failureStatus;
}
