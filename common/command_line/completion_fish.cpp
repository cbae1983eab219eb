// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/described_command.h"

namespace Common {

namespace {

std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char character : text) {
    if (character == '\'' || character == '\\')
      result += '\\';
    result += character;
  }
  return result + "'";
}

std::string valueOf(const DescribedArgument& argument) {
  std::string words;
  switch (argument.completion) {
  case Completion::Words:
    for (const std::string& word : argument.words)
      words += (words.empty() ? "" : " ") + word;
    return " -x -a " + quoted(words);
  case Completion::Files:
    return " -r -F";
  case Completion::Directories:
    return " -x -a '(__fish_complete_directories)'";
  case Completion::Nothing:
    break;
  }
  return " -x";
}

std::string nameOf(const std::string& name) {
  return name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
}

/// `start`: the command with the condition of this level.
std::string completionOf(const DescribedCommand& command, const std::string& start) {
  std::string text;
  for (const DescribedArgument& option : command.options) {
    text += start;
    for (const std::string& name : option.names)
      text += nameOf(name);
    text += (option.takesValue ? valueOf(option) : "") + " -d " + quoted(option.description) + "\n";
  }
  for (const DescribedArgument& operand : command.operands)
    text += start + (operand.completion == Completion::Files ? " -F" : valueOf(operand)) + "\n";
  for (const DescribedCommand& subcommand : command.commands)
    text += start + " -a " + subcommand.name + " -d " + quoted(subcommand.description) + "\n";
  return text;
}

} // namespace

std::string fishCompletion(const DescribedCommand& program) {
  const std::string start = "complete -c " + program.name;
  std::string text = "# Completion of " + program.name + " in fish, made from its options.\n" + start + " -f\n";
  if (program.commands.empty())
    return text + completionOf(program, start);
  text += completionOf(program, start + " -n __fish_use_subcommand");
  for (const DescribedCommand& command : program.commands)
    text += completionOf(command, start + " -n '__fish_seen_subcommand_from " + command.name + "'");
  return text;
}

} // namespace Common
