// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/described_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>

namespace Common {

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
  std::istringstream stream(text);
  std::vector<std::string> parts;
  for (std::string part; std::getline(stream, part, separator);)
    parts.push_back(part);
  return parts;
}

Completion completionOf(const std::string& placeholder) {
  constexpr std::array<std::string_view, 3> directories = {"DIR", "TREE", "IMAGE"};
  constexpr std::array<std::string_view, 4> files = {"FILE", "KEY", "KEY,CERT", "PACKAGE"};
  if (placeholder.find('|') != std::string::npos)
    return Completion::Words;
  if (std::ranges::count(directories, placeholder) != 0)
    return Completion::Directories;
  return std::ranges::count(files, placeholder) != 0 ? Completion::Files : Completion::Nothing;
}

DescribedArgument describe(const CLI::Option& option) {
  DescribedArgument argument{.names = {},
                             .description = option.get_description(),
                             .takesValue = option.get_items_expected_max() > 0,
                             .repeats = option.get_items_expected_max() > 1,
                             .placeholder = option.get_positional() ? option.get_name(true) : option.get_type_name(),
                             .completion = Completion::Nothing,
                             .words = {}};
  for (const std::string& name : option.get_snames())
    argument.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames())
    argument.names.push_back("--" + name);
  if (argument.takesValue)
    argument.completion = completionOf(argument.placeholder);
  if (argument.completion == Completion::Words)
    argument.words = split(argument.placeholder, '|');
  return argument;
}

} // namespace

DescribedCommand describe(const CLI::App& app) {
  DescribedCommand command{
      .name = app.get_name(), .description = app.get_description(), .options = {}, .operands = {}, .commands = {}};
  for (const CLI::Option* option : app.get_options())
    (option->get_positional() ? command.operands : command.options).push_back(describe(*option));
  for (const CLI::App* subcommand : app.get_subcommands([](const CLI::App*) { return true; }))
    command.commands.push_back(describe(*subcommand));
  return command;
}

} // namespace Common
