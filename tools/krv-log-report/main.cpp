// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/command_line.h"
#include "common/text/printable.h"
#include "tools/krv-log-report/output.h"
#include "tools/krv-log-report/read_log.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <system_error>

namespace {

using namespace LogReport;

struct Options {
  std::string file;
  Format format = Format::Text;
};

void addOptions(CLI::App& app, Options& options) {
  static const std::map<std::string, Format> formats = {{"text", Format::Text}, {"json", Format::Json}};
  app.add_option("FILE", options.file,
                 "The log: lines of krv-pre-installer, or the output of journalctl -o json --all; default: standard "
                 "input")
      ->type_name("");
  app.add_option("--format", options.format, "Default: text; json writes one object per line")
      ->transform(CLI::CheckedTransformer(formats).description(""))
      ->type_name("text|json");
}

/// Returns whether the whole log was read and the whole report written.
bool report(const Options& options) {
  std::ifstream file;
  if (!options.file.empty()) {
    file.open(options.file, std::ios::binary);
    if (!file)
      throw std::system_error(errno, std::generic_category(), options.file);
  }
  std::istream& input = options.file.empty() ? std::cin : file;
  const auto output = Output::make(options.format, std::cout, std::cerr);
  readLog(input, *output);
  output->finish();
  std::cout.flush();
  if (!std::cout)
    std::cerr << "krv-log-report: standard output cannot be written\n";
  return static_cast<bool>(std::cout);
}

} // namespace

int main(int count, char** arguments) {
  std::ios::sync_with_stdio(false);
  try {
    Options options;
    CLI::App app("Tell what became of each package, and why, from the log of krv-pre-installer.", "krv-log-report");
    app.footer("Exit status: 0 the log was read, 1 it cannot be read or the report not written, 2 wrong usage.");
    addOptions(app, options);
    if (const auto status = Common::parseCommandLine(app, count, arguments))
      return *status;
    return report(options) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::cerr << "krv-log-report: " << Common::printable(error.what()) << '\n';
    return EXIT_FAILURE;
  }
}
