// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/described_command.h"

namespace Common {

namespace {

/// With a backslash before each of `special`.
std::string escaped(const std::string& text, const std::string& special) {
  std::string result;
  for (const char character : text) {
    if (special.find(character) != std::string::npos)
      result += '\\';
    result += character;
  }
  return result;
}

std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char character : text)
    result += character == '\'' ? "'\\''" : std::string(1, character);
  return result + "'";
}

std::string actionOf(const DescribedArgument& argument) {
  std::string words;
  switch (argument.completion) {
  case Completion::Words:
    for (const std::string& word : argument.words)
      words += (words.empty() ? "" : " ") + word;
    return "(" + words + ")";
  case Completion::Files:
    return "_files";
  case Completion::Directories:
    return "_files -/";
  case Completion::Nothing:
    break;
  }
  return " ";
}

std::string valueOf(const DescribedArgument& argument) {
  return ":" + escaped(argument.placeholder, ":\\") + ":" + actionOf(argument);
}

/// The arguments of zsh's _arguments, each in a line of its own.
std::string argumentsOf(const DescribedCommand& command, const std::string& indent) {
  std::string text;
  for (const DescribedArgument& option : command.options)
    for (const std::string& name : option.names)
      text += " \\\n" + indent +
              quoted((option.repeats ? "*" : "") + name + (option.takesValue && name.starts_with("--") ? "=" : "") +
                     "[" + escaped(option.description, "[]\\") + "]" + (option.takesValue ? valueOf(option) : ""));
  for (const DescribedArgument& operand : command.operands)
    text += " \\\n" + indent + quoted((operand.repeats ? "*" : "") + valueOf(operand));
  return text;
}

} // namespace

std::string zshCompletion(const DescribedCommand& program) {
  const std::string head =
      "#compdef " + program.name + "\n# Completion of " + program.name + " in zsh, made from its options.\n";
  if (program.commands.empty())
    return head + "_arguments -S" + argumentsOf(program, "  ") + "\n";
  std::string names;
  std::string cases;
  for (const DescribedCommand& command : program.commands) {
    names += "      " + quoted(command.name + ":" + command.description) + "\n";
    cases += "      " + command.name + ") _arguments -S" + argumentsOf(command, "        ") + " ;;\n";
  }
  return head +
         "local curcontext=$curcontext state line commands\n"
         "typeset -A opt_args\n"
         "_arguments -C" +
         argumentsOf(program, "  ") +
         " \\\n  ':command:->command' \\\n  '*::argument:->argument' && return\n"
         "case $state in\n"
         "  command)\n"
         "    commands=(\n" +
         names +
         "    )\n"
         "    _describe command commands\n"
         "    ;;\n"
         "  argument)\n"
         "    case $words[1] in\n" +
         cases +
         "    esac\n"
         "    ;;\n"
         "esac\n";
}

} // namespace Common
