// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/pass_phrases.h"

#include "platform/rpmsign-external/src/handles.h"
#include "platform/rpmsign-external/src/signing_error.h"

#include <openssl/ui.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include <fcntl.h>

namespace PackageSignatures {

namespace {

class NoPassPhrases : public PassPhrases::Impl {
public:
  int give(const std::string&, std::span<char>) noexcept override { return -1; }
  const char* refusal() const noexcept override { return "none is given"; }
};

class Terminal : public PassPhrases::Impl {
public:
  int give(const std::string& prompt, std::span<char> buffer) noexcept override {
    // Without a terminal OpenSSL would read from standard input, with echo.
    m_isThere = static_cast<bool>(FileDescriptor(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)));
    const std::unique_ptr<UI, Release<UI_free>> dialog(m_isThere ? UI_new_method(UI_OpenSSL()) : nullptr);
    constexpr int noEcho = 0;
    constexpr int shortest = 1;
    const int longest = static_cast<int>(buffer.size()) - 1; // OpenSSL adds a NUL
    if (!dialog || UI_add_input_string(dialog.get(), prompt.c_str(), noEcho, buffer.data(), shortest, longest) < 0 ||
        UI_process(dialog.get()) != 0)
      return -1;
    return static_cast<int>(std::string_view(buffer.data()).size());
  }

  const char* refusal() const noexcept override {
    return m_isThere ? "none was entered" : "there is no terminal to ask for it";
  }

private:
  bool m_isThere = false;
};

class Lines : public PassPhrases::Impl {
public:
  /// Without a buffered stream, which would leave copies in memory.
  explicit Lines(const std::string& path) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    ssize_t count = file ? 1 : -1;
    while (count > 0 && m_end < m_bytes.size()) {
      count = TEMP_FAILURE_RETRY(read(file.get(), m_bytes.data() + m_end, m_bytes.size() - m_end));
      m_end += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    if (count == 0)
      return;
    const int error = errno;
    OPENSSL_cleanse(m_bytes.data(), m_bytes.size()); // the destructor does not run
    if (count < 0)
      failWithErrno("the file of pass phrases " + path + " cannot be read", error);
    throw SigningError("the file of pass phrases " + path + " is too long");
  }
  ~Lines() override { OPENSSL_cleanse(m_bytes.data(), m_bytes.size()); }
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  int give(const std::string&, std::span<char> buffer) noexcept override {
    const std::string_view rest(m_bytes.data() + m_begin, m_end - m_begin);
    const std::string_view line = rest.substr(0, rest.find('\n'));
    m_begin += std::min(line.size() + 1, rest.size());
    if (line.empty() || line.size() > buffer.size())
      return -1;
    std::ranges::copy(line, buffer.begin());
    return static_cast<int>(line.size());
  }

  const char* refusal() const noexcept override { return "the file of pass phrases has no usable line for it"; }

private:
  std::array<char, 16 * 1024> m_bytes{};
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
};

} // namespace

PassPhrases::PassPhrases() : m_impl(std::make_shared<NoPassPhrases>()) {}

PassPhrases::PassPhrases(std::shared_ptr<Impl> impl) : m_impl(std::move(impl)) {}

PassPhrases PassPhrases::fromTerminal() {
  return PassPhrases(std::make_shared<Terminal>());
}

PassPhrases PassPhrases::fromFile(const std::string& path) {
  return PassPhrases(std::make_shared<Lines>(path));
}

PassPhraseQuestion::PassPhraseQuestion(PassPhrases::Impl& source, std::string prompt)
    : m_source(source), m_prompt(std::move(prompt)) {}

int PassPhraseQuestion::answer(char* buffer, int size, int, void* question) noexcept {
  auto& self = *static_cast<PassPhraseQuestion*>(question);
  if (std::exchange(self.m_wasAsked, true) || size <= 0)
    return -1;
  const int length = self.m_source.give(self.m_prompt, {buffer, static_cast<std::size_t>(size)});
  if (length < 0)
    self.m_refusal = self.m_source.refusal();
  return length;
}

} // namespace PackageSignatures
