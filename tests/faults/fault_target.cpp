// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// Runs an operation on files as a program, so that a test can make its system calls fail or kill it at one of them.
//
//   krv-fault-target copy FROM TO
//   krv-fault-target move FROM TO
//   krv-fault-target write-content PACKAGE DESTINATION OTHER-PACKAGE
//   krv-fault-target extract PACKAGE TARGET OTHER-PACKAGE
//
// OTHER-PACKAGE is read first, so that librpm has loaded its configuration and keyring before the operation.
// Exit status: 0 success, 1 the operation threw a Common::Error, 2 another exception; standard error has the message.

#include "common/filesystem/copy.h"
#include "common/filesystem/entry.h"
#include "common/rpm/archive.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/extraction/extract_tree.h"

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Common::Rpm::ArchiveEntry;
using Common::Rpm::ArchiveReader;

void writeContent(const std::string& package, const std::string& destination) {
  ArchiveReader archive = ArchiveReader::openForExtraction(package);
  archive.extract("/", {.directory = [](const ArchiveEntry&) {},
                        .regularFile =
                            [&](const ArchiveEntry&) {
                              archive.writeContent(destination);
                              return std::any();
                            },
                        .symbolicLink = {},
                        .hardLinks = {}});
}

void perform(const std::vector<std::string>& arguments) {
  const std::string& operation = arguments.at(0);
  const std::string& from = arguments.at(1);
  const std::string& to = arguments.at(2);
  if (operation == "copy")
    return Common::Filesystem::copy(from, to);
  if (operation == "move")
    return Common::Filesystem::move(from, to);
  const Common::Rpm::Reader other(arguments.at(3));
  if (operation == "write-content")
    return writeContent(from, to);
  if (operation != "extract")
    throw std::invalid_argument(operation);
  ArchiveReader archive = ArchiveReader::openForExtraction(from);
  Support::extractTree(archive, to);
}

} // namespace

int main(int count, char** arguments) {
  try {
    const std::string error = Support::errorOf([&] { perform({arguments + 1, arguments + count}); });
    if (error == "no error")
      return 0;
    std::cerr << error << std::endl;
    return 1;
  } catch (const std::exception& exception) {
    std::cerr << exception.what() << std::endl;
    return 2;
  }
}
