// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/described_command.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace Common {

namespace {

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : separator) + word;
  return text;
}

std::string offer(const std::vector<std::string>& words) {
  return "mapfile -t COMPREPLY < <(compgen -W '" + joined(words, " ") + "' -- \"$word\")";
}

/// Paths are left to bash itself, which knows how to quote them.
std::string offerValue(const DescribedArgument& argument) {
  switch (argument.completion) {
  case Completion::Words:
    return offer(argument.words);
  case Completion::Files:
    return "compopt -o default";
  case Completion::Directories:
    return "compopt -o dirnames";
  case Completion::Nothing:
    break;
  }
  return "";
}

/// The cases for the word before, which may be an option that takes a value.
std::string valuesOf(const std::vector<DescribedArgument>& options, const std::string& indent) {
  std::map<std::string, std::vector<std::string>> namesByOffer;
  for (const DescribedArgument& option : options)
    if (option.takesValue)
      std::ranges::copy(option.names, std::back_inserter(namesByOffer[offerValue(option)]));
  std::string text;
  for (const auto& [offer, names] : namesByOffer)
    text += indent + joined(names, " | ") + ") " + (offer.empty() ? "" : offer + "; ") + "return ;;\n";
  return text;
}

std::vector<std::string> namesOf(const std::vector<DescribedCommand>& commands) {
  std::vector<std::string> names;
  for (const DescribedCommand& command : commands)
    names.push_back(command.name);
  return names;
}

std::string completionOf(const DescribedCommand& command, const std::string& indent) {
  const std::string values = valuesOf(command.options, indent + "  ");
  std::vector<std::string> options;
  for (const DescribedArgument& option : command.options)
    std::ranges::copy(option.names, std::back_inserter(options));
  std::string text;
  if (!values.empty())
    text += indent + "case $before in\n" + values + indent + "esac\n";
  text += indent + "case $word in\n" + indent + "  -*) " + offer(options) + " ;;\n";
  if (!command.commands.empty())
    text += indent + "  *) " + offer(namesOf(command.commands)) + " ;;\n";
  else if (!command.operands.empty())
    text += indent + "  *) " + offerValue(command.operands.front()) + " ;;\n";
  return text + indent + "esac\n";
}

std::string commandsOf(const DescribedCommand& program) {
  std::string text = "  local command= i\n"
                     "  for ((i = 1; i < COMP_CWORD; ++i)); do\n"
                     "    case ${COMP_WORDS[i]} in\n"
                     "      " +
                     joined(namesOf(program.commands), " | ") +
                     ") command=${COMP_WORDS[i]}; break ;;\n"
                     "    esac\n"
                     "  done\n"
                     "  case $command in\n";
  for (const DescribedCommand& command : program.commands)
    text += "    " + command.name + ")\n" + completionOf(command, "      ") + "      ;;\n";
  return text + "    *)\n" + completionOf(program, "      ") + "      ;;\n  esac\n";
}

} // namespace

std::string bashCompletion(const DescribedCommand& program) {
  std::string function = "_" + program.name;
  std::ranges::replace(function, '-', '_');
  return "# Completion of " + program.name + " in bash, made from its options.\n" + function +
         "() {\n"
         "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n"
         "  # Bash splits --option=value at the \"=\".\n"
         "  if [ \"$word\" = = ]; then\n"
         "    word=\n"
         "  elif [ \"$before\" = = ]; then\n"
         "    before=${COMP_WORDS[COMP_CWORD - 2]}\n"
         "  fi\n" +
         (program.commands.empty() ? completionOf(program, "  ") : commandsOf(program)) + "}\ncomplete -F " + function +
         " " + program.name + "\n";
}

} // namespace Common
