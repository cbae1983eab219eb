// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store/store_fixture.h"

#include "tests/support/diagnostics/thrown.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/process.h"

#include <iomanip>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include <sys/stat.h>

namespace StoreTest {

namespace fs = std::filesystem;

namespace {

std::string describe(const fs::path& entry, const std::string& firstName) {
  const fs::file_status status = fs::symlink_status(entry);
  std::ostringstream text;
  if (status.type() == fs::file_type::symlink) {
    text << "-> " << fs::read_symlink(entry).string();
    return text.str();
  }
  text << std::oct << static_cast<unsigned>(status.permissions());
  if (status.type() == fs::file_type::directory)
    text << " directory";
  else if (status.type() != fs::file_type::regular)
    text << " special file";
  else if (firstName != entry)
    text << " is also " << fs::path(firstName).filename().string();
  else
    text << " " << std::quoted(Support::readFile(entry));
  return text.str();
}

ino_t numberOf(const fs::path& entry) {
  struct stat status = {};
  lstat(entry.c_str(), &status);
  return status.st_ino;
}

/// All header tags of the packages in a database, in rpm's XML form. Sorted, because the database returns a restored
/// entry last.
std::string headers(const fs::path& database) {
  const std::string end = "</rpmHeader>\n";
  std::string text = Support::runOrThrow({"rpm", "--dbpath", database.string(), "-qa", "--qf", "[%{*:xml}\\n]"});
  std::set<std::string> entries;
  for (std::size_t size; (size = text.find(end)) != text.npos; text.erase(0, size + end.size()))
    entries.insert(text.substr(0, size));
  for (const std::string& entry : entries)
    text += entry;
  return text;
}

} // namespace

Fixture::Fixture() : m_root("KRV_ROOT_FS", root().string()) {
  fs::create_directories(root());
  Support::trustAuthorityUnder(root());
}

Sandbox::PackageStore& Fixture::store() {
  if (!m_store)
    m_store = std::make_unique<Sandbox::PackageStore>();
  return *m_store;
}

std::string Fixture::unsignedPackage(const Support::PackageInput& input) {
  const fs::path path = m_rpm.path() / ("package-" + std::to_string(++m_packages) + ".rpm");
  m_rpm.build(input, path);
  return path;
}

std::string Fixture::package(const Support::PackageInput& input, const Signature& signature) {
  const std::string path = unsignedPackage(input);
  Support::sign(path, signature.developer, signature.previous);
  return path;
}

std::string Fixture::package(const Support::PackageInput& input, const std::function<void(Header)>& change) {
  const std::string path = unsignedPackage(input);
  Support::changeHeader(path, change);
  Support::sign(path, "alice");
  return path;
}

void Fixture::expectRefused(const std::string& path, const std::string& error) {
  store();
  const std::string before = state();
  EXPECT_EQ(Support::errorOf([&] { installFile(path); }), error);
  EXPECT_EQ(state(), before);
}

std::string Fixture::tree() const {
  static const std::set<fs::path> ofTheStore = {"etc", "etc/krv", "var", "var/lib", "var/lib/krv", "var/lib/rpm"};
  static const std::set<fs::path> closed = {"etc/krv", "var/lib/krv", "var/lib/rpm"};
  std::set<fs::path> names;
  for (auto entry = fs::recursive_directory_iterator(root()); entry != fs::recursive_directory_iterator(); ++entry) {
    const fs::path name = entry->path().lexically_relative(root());
    if (!ofTheStore.contains(name))
      names.insert(name);
    if (closed.contains(name))
      entry.disable_recursion_pending();
  }
  std::map<ino_t, std::string> firstNames;
  std::string text;
  for (const fs::path& name : names) {
    const fs::path entry = root() / name;
    text += name.string() + " " + describe(entry, firstNames.emplace(numberOf(entry), entry).first->second) + "\n";
  }
  return text;
}

std::vector<std::string> Fixture::database() const {
  std::istringstream lines(Support::runOrThrow({"rpm", "--dbpath", (root() / "var/lib/rpm").string(), "-qa"}));
  std::vector<std::string> names;
  for (std::string line; std::getline(lines, line);)
    names.push_back(line);
  return names;
}

std::string Fixture::registry() const {
  const fs::path path = root() / "var/lib/krv/registry";
  if (!fs::exists(path))
    return "";
  return std::regex_replace(Support::readFile(path), std::regex("timestamp=[0-9]+ "), "");
}

std::string Fixture::state() const {
  const fs::path path = root() / "var/lib/krv/registry";
  return tree() + "registry: " + (fs::exists(path) ? Support::readFile(path) : "") + headers(root() / "var/lib/rpm") +
         (fs::exists(root() / "var/lib/krv/sandbox/transaction") ? "a transaction\n" : "");
}

} // namespace StoreTest
