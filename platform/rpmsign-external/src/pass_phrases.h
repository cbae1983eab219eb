// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpmsign-external/signing.h>

#include <span>
#include <string>

namespace PackageSignatures {

/// A source of pass phrases. OpenSSL calls it, and an exception must not pass through OpenSSL.
class PassPhrases::Impl {
public:
  Impl() = default;
  virtual ~Impl() = default;
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  /// Writes the pass phrase into `buffer` and returns its length, or -1 without a pass phrase.
  virtual int give(const std::string& prompt, std::span<char> buffer) noexcept = 0;

  /// Why give() returned -1.
  virtual const char* refusal() const noexcept = 0;
};

/// The question for the pass phrase of one key.
class PassPhraseQuestion {
public:
  PassPhraseQuestion(PassPhrases::Impl& source, std::string prompt);

  /// A pem_password_cb, whose `question` is the object. It answers once: further attempts with a wrong PIN could lock a
  /// token.
  static int answer(char* buffer, int size, int isNew, void* question) noexcept;

  bool wasAsked() const { return m_wasAsked; }

  /// Why there was no answer; null if there was one, or no question.
  const char* refusal() const { return m_refusal; }

private:
  PassPhrases::Impl& m_source;
  std::string m_prompt;
  bool m_wasAsked = false;
  const char* m_refusal = nullptr;
};

} // namespace PackageSignatures
