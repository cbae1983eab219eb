// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/change_plan.h"

#include <charconv>
#include <stdexcept>
#include <utility>

namespace Sandbox {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view before = "before";
constexpr std::string_view after = "after";
constexpr std::string_view make = "make";
constexpr std::string_view add = "add";
constexpr std::string_view replace = "replace";
constexpr std::string_view remove = "delete";
constexpr std::string_view drop = "drop";
constexpr std::string_view mode = "mode";
constexpr std::string_view end = "end";

struct Damaged : std::runtime_error {
  Damaged() : std::runtime_error("The journal is damaged") {}
};

/// The FNV-1a hash. It detects a file that a power loss has cut or zeroed; nobody else can write to the file.
std::uint64_t checksum(std::string_view bytes) {
  std::uint64_t sum = 14695981039346656037U;
  for (const char byte : bytes)
    sum = (sum ^ static_cast<unsigned char>(byte)) * 1099511628211U;
  return sum;
}

std::string_view nameOf(Change::Kind kind) {
  return kind == Change::Kind::Add ? add : kind == Change::Kind::Replace ? replace : remove;
}

class Writer {
public:
  void add(std::string_view text) { m_bytes.append(text).push_back('\0'); }
  void addNumber(std::uint64_t number) { add(std::to_string(number)); }
  void addEntry(std::string_view name, const std::optional<std::string>& entry) {
    if (!entry)
      return;
    add(name);
    addNumber(entry->size());
    m_bytes.append(*entry);
  }
  void addChecksum() { addNumber(checksum(m_bytes)); }
  std::string take() { return std::move(m_bytes); }

private:
  std::string m_bytes;
};

class TextReader {
public:
  explicit TextReader(std::string_view bytes) : m_rest(bytes) {}

  std::string_view next() {
    const std::size_t length = m_rest.find('\0');
    if (length == m_rest.npos)
      throw Damaged();
    const std::string_view text = m_rest.substr(0, length);
    m_rest.remove_prefix(length + 1);
    return text;
  }

  std::string nextEntry() {
    const auto size = nextNumber<std::size_t>();
    if (size > m_rest.size())
      throw Damaged();
    const std::string entry(m_rest.substr(0, size));
    m_rest.remove_prefix(size);
    return entry;
  }

  std::size_t left() const { return m_rest.size(); }

  template <typename Number>
  Number nextNumber() {
    const std::string_view text = next();
    Number number = 0;
    const char* const last = text.data() + text.size();
    const auto result = std::from_chars(text.data(), last, number);
    if (result.ec != std::errc() || result.ptr != last)
      throw Damaged();
    return number;
  }

private:
  std::string_view m_rest;
};

void readItem(std::string_view kind, TextReader& texts, ChangePlan& plan) {
  if (kind == before)
    plan.entryBefore = texts.nextEntry();
  else if (kind == after)
    plan.entryAfter = texts.nextEntry();
  else if (kind == make)
    plan.newDirectories.emplace_back(texts.next());
  else if (kind == drop)
    plan.obsoleteDirectories.emplace_back(texts.next());
  else if (kind == mode) {
    const auto permissions = static_cast<fs::perms>(texts.nextNumber<unsigned>());
    const auto earlier = static_cast<fs::perms>(texts.nextNumber<unsigned>());
    plan.directoryModes.push_back({.path = texts.next(), .permissions = permissions, .earlier = earlier});
  } else {
    const auto changeKind = kind == add       ? Change::Kind::Add
                            : kind == replace ? Change::Kind::Replace
                            : kind == remove  ? Change::Kind::Delete
                                              : throw Damaged();
    Change change{.kind = changeKind, .number = texts.nextNumber<std::size_t>(), .path = texts.next()};
    change.oldInode = texts.nextNumber<std::uint64_t>();
    change.newInode = texts.nextNumber<std::uint64_t>();
    plan.changes.push_back(std::move(change));
  }
}

} // namespace

std::string toBytes(const ChangePlan& plan) {
  Writer texts;
  texts.add(plan.package);
  texts.add(plan.record);
  texts.addEntry(before, plan.entryBefore);
  texts.addEntry(after, plan.entryAfter);
  for (const fs::path& directory : plan.newDirectories) {
    texts.add(make);
    texts.add(directory.native());
  }
  for (const Change& change : plan.changes) {
    texts.add(nameOf(change.kind));
    texts.addNumber(change.number);
    texts.add(change.path.native());
    texts.addNumber(change.oldInode);
    texts.addNumber(change.newInode);
  }
  for (const fs::path& directory : plan.obsoleteDirectories) {
    texts.add(drop);
    texts.add(directory.native());
  }
  for (const DirectoryMode& directory : plan.directoryModes) {
    texts.add(mode);
    texts.addNumber(static_cast<unsigned>(directory.permissions));
    texts.addNumber(static_cast<unsigned>(directory.earlier));
    texts.add(directory.path.native());
  }
  texts.add(end);
  texts.addChecksum();
  return texts.take();
}

std::optional<ChangePlan> planFrom(std::string_view bytes) {
  try {
    TextReader texts(bytes);
    ChangePlan plan;
    plan.package = texts.next();
    plan.record = texts.next();
    for (std::string_view kind = texts.next(); kind != end; kind = texts.next())
      readItem(kind, texts, plan);
    const std::uint64_t sum = checksum(bytes.substr(0, bytes.size() - texts.left()));
    if (texts.nextNumber<std::uint64_t>() != sum || texts.left() != 0)
      return std::nullopt;
    return plan;
  } catch (const Damaged&) {
    return std::nullopt;
  }
}

} // namespace Sandbox
