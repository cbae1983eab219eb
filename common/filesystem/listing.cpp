// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/listing.h"

#include "common/filesystem/failure.h"

#include <algorithm>
#include <utility>

namespace Common::Filesystem {

namespace fs = std::filesystem;

namespace {

struct TimestampedPath {
  fs::file_time_type time;
  fs::path path;
};

template <typename Iterator>
std::vector<TimestampedPath> readEntries(const fs::path& directory) {
  std::vector<TimestampedPath> entries;
  for (const fs::directory_entry& entry : Iterator(directory))
    entries.push_back({fs::last_write_time(entry.path()), entry.path()});
  return entries;
}

bool contains(ListOptions options, ListOptions option) {
  return (options & option) != ListOptions::None;
}

} // namespace

std::vector<fs::path> listDirectory(const fs::path& directory, ListOptions options) {
  return Failure::runOrThrow("Couldn't read directory: " + directory.string(), [&] {
    std::vector<TimestampedPath> entries = contains(options, ListOptions::Recursive)
                                               ? readEntries<fs::recursive_directory_iterator>(directory)
                                               : readEntries<fs::directory_iterator>(directory);
    if (contains(options, ListOptions::SortedByTime))
      std::ranges::sort(entries, {}, &TimestampedPath::time);

    std::vector<fs::path> paths;
    paths.reserve(entries.size());
    for (TimestampedPath& entry : entries)
      paths.push_back(std::move(entry.path));
    return paths;
  });
}

} // namespace Common::Filesystem
