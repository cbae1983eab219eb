// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

/// bench-write-lines FROM TO: replaces TO by the lines of FROM in the same way as the registry: writes them to a file
/// beside TO, flushes each line, and renames the file.
int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: bench-write-lines FROM TO\n";
    return 2;
  }
  std::vector<std::string> lines;
  std::ifstream from(argv[1]);
  for (std::string line; std::getline(from, line);)
    lines.push_back(line);
  const std::string next = std::string(argv[2]) + ".next";
  std::ofstream file(next);
  for (const std::string& line : lines)
    file << line << std::endl;
  file.close();
  return file.good() && std::rename(next.c_str(), argv[2]) == 0 ? 0 : 1;
}
