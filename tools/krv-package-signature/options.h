// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

struct KeyFiles {
  std::string key; ///< a file, or a URI of a token
  std::string certificate;
};

/// The values of the command line. Unused fields keep their defaults.
struct Options {
  std::vector<std::string> packages = {};
  KeyFiles signer = {};
  std::string chainPath = {};
  std::vector<KeyFiles> previous = {};
  std::optional<std::string> passPhraseFile = {};
  bool json = false;
  std::optional<std::string> caPath = {};
  std::optional<std::time_t> at = {};
};

/// Adds a command to `app`; parsing fills `options`, which must outlive `app`. Returns the command, owned by `app`.
CLI::App* addSign(CLI::App& app, Options& options);
CLI::App* addShow(CLI::App& app, Options& options);
CLI::App* addVerify(CLI::App& app, Options& options);
