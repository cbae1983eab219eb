// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/options.h"

#include "tools/krv-image-check/catalogue.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>

namespace ImageCheck {

namespace {

/// A number without a sign; nothing if `text` has any other form.
std::optional<unsigned> parseNumber(std::string_view text) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

void addScenarios(CLI::App& app, Options& options) {
  app.add_option("--previous", options.previous, "An image that devices run today; repeatable")
      ->allow_extra_args(false)
      ->type_name("TREE");
  app.add_option("--removed", options.removed,
                 "In every scenario but the first boot, the user has removed the package NAME; repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
  app.add_option("--device", options.device,
                 "A device's file tree or a copy of it: its RPM database and registry make a scenario")
      ->type_name("TREE");
}

void addInput(CLI::App& app, Options& options) {
  app.add_option("--arch", options.architecture,
                 "The device's RPM architecture; default: told by the image's own programs")
      ->type_name("ARCH");
  app.add_option("--ca-path", options.caPath,
                 "The directory of trusted authorities; default: etc/krv/trusted-ca of the image")
      ->type_name("DIR");
  app.add_option_function<std::string>(
         "--at",
         [&options](const std::string& text) {
           options.at = parseDay(text);
           if (!options.at)
             throw CLI::ValidationError("--at", "expected a day as YYYY-MM-DD, not " + text);
         },
         "The day to check for; default: today")
      ->type_name("DATE");
  app.add_option_function<std::uint16_t>(
         "--expiry-margin", [&options](std::uint16_t days) { options.expiryMargin = std::chrono::days(days); },
         "Certificates that end within so many days are findings; default: 90")
      ->type_name("DAYS");
  app.add_option("--space", options.space, "The bytes that are free on the device for applications")
      ->type_name("BYTES");
  app.add_flag("--deep", options.deep, "Decompress every payload and compare each file's digest");
  app.add_option("--waivers", options.waivers, "A file of findings that are accepted")->type_name("FILE");
}

void addOutput(CLI::App& app, Options& options) {
  static const std::map<std::string, Severity> severities = {
      {"error", Severity::Error}, {"warning", Severity::Warning}, {"note", Severity::Note}};
  static const std::map<std::string, Format> formats = {
      {"text", Format::Text}, {"json", Format::Json}, {"sarif", Format::Sarif}, {"html", Format::Html}};
  app.add_option("--fail-on", options.failOn, "The least severity that gives status 1; default: error")
      ->transform(CLI::CheckedTransformer(severities).description(""))
      ->type_name("error|warning|note");
  app.add_option("--format", options.format, "Default: text")
      ->transform(CLI::CheckedTransformer(formats).description(""))
      ->type_name("text|json|sarif|html");
  app.add_option("--output", options.output, "Default: standard output")->type_name("FILE");
  app.add_option("--jobs", options.jobs, "The number of processes; default: the number of cores")
      ->check(CLI::Range(1u, 1024u).description(""))
      ->type_name("N");
  app.add_option("--explain", options.explainedId,
                 "Print what a finding means, what happens on the device and what to do; \"all\" lists every finding")
      ->type_name("ID");
}

} // namespace

std::optional<std::chrono::sys_days> parseDay(const std::string& text) {
  using namespace std::chrono;
  if (text.size() != 10 || text[4] != '-' || text[7] != '-')
    return std::nullopt;
  const std::string_view view = text;
  const auto years = parseNumber(view.substr(0, 4));
  const auto months = parseNumber(view.substr(5, 2));
  const auto days = parseNumber(view.substr(8, 2));
  if (!years || !months || !days)
    return std::nullopt;
  const year_month_day date{year(static_cast<int>(*years)), month(*months), day(*days)};
  return date.ok() ? std::optional<sys_days>(date) : std::nullopt;
}

void addOptions(CLI::App& app, Options& options) {
  app.add_option("IMAGE", options.image, "The root of the image's file tree")->type_name("");
  addScenarios(app, options);
  addInput(app, options);
  addOutput(app, options);
  app.final_callback([&options] {
    if (options.explainedId && *options.explainedId != "all" && findExplanation(*options.explainedId) == nullptr)
      throw CLI::ValidationError("--explain", "unknown id " + *options.explainedId);
    if (!options.explainedId && options.image.empty())
      throw CLI::RequiredError("IMAGE");
  });
}

} // namespace ImageCheck
