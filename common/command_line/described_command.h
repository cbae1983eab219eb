// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Common {

/// How a shell completes a value.
enum class Completion { Nothing, Words, Files, Directories };

/// An option, or the operands of a command.
struct DescribedArgument {
  std::vector<std::string> names; ///< with their dashes; empty for operands
  std::string description;
  bool takesValue;
  bool repeats;
  std::string placeholder; ///< the name of the value in the help, for example "FILE"
  Completion completion;
  std::vector<std::string> words; ///< of Completion::Words
};

struct DescribedCommand {
  std::string name;
  std::string description;
  std::vector<DescribedArgument> options;
  std::vector<DescribedArgument> operands;
  std::vector<DescribedCommand> commands;
};

/// The arguments of `app` as its help shows them. A value is completed by its placeholder: "a|b" with the words "a" and
/// "b", DIR, TREE and IMAGE with directories, FILE, KEY, "KEY,CERT" and PACKAGE with files, anything else not at all.
DescribedCommand describe(const CLI::App& app);

/// The completion scripts of the shells.
std::string bashCompletion(const DescribedCommand& program);
std::string fishCompletion(const DescribedCommand& program);
std::string zshCompletion(const DescribedCommand& program);

} // namespace Common
