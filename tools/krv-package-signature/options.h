// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// A command line that makes no sense; what() says why.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

enum class Command {
  Help,
  Sign,
  Show,
  Verify,
};

struct KeyFiles {
  std::string key;
  std::string certificate;
};

/// What the command line asks for. Fields that the command does not use keep their defaults.
struct Options {
  Command command = Command::Help;
  std::vector<std::string> packages = {};
  KeyFiles signer = {};
  std::string chainPath = {};
  std::vector<KeyFiles> previous = {};
  bool json = false;
  std::optional<std::string> caPath = {};
};

/// Throws UsageError. Changes the order of `arguments`, which end with a null pointer as those of main().
Options parseOptions(int count, char** arguments);

extern const char* const helpText;
