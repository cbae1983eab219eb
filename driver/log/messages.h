// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "driver/log/log_message.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <type_traits>

/// Every line that the tool and its libraries log. A new message needs a form below and a place in krv-log-report,
/// which does not compile without it.
enum class Message {
  ErrorText,

  NoProxy,
  NoList,
  Installed,
  InstallFailed,
  Skipping,
  TimeSpent,

  Unreadable,
  RemovedByUser,
  NotNewer,
  DeveloperMismatch,
  VersionNotParsed,
  UnexpectedComparison,
  VersionsNotCompared,
  NoRpmConfiguration,
  UnexpectedEntryType,

  QueryFailed,
  NoInstalledVersion,
  NoInstalledKey,
  InstallationError,

  RecordsNotRead,
  NoLockFile,
  NoLock,
  RegistryNotOpened,
  RecordsNotLoaded,
  RecordsNotWritten,
  RegistryNotReplaced,
  BadRecord,
  UnknownRecordKey,
  RecordWithoutTimestamp,
  RecordWithoutEvent,
  RecordWithUnknownEvent,
  RecordWithoutPackage,
  RecordWithoutKey,
  RecordTimestampNotParsed,

  SymlinkNotCopied,
  SymlinkLeavesDirectory,
  CopiesSymlinkTarget,
  FileNotCleanedUp,
  DirectoryNotCleanedUp,
};

/// The fixed text of a message, with a placeholder for each value. {path} is quoted, with backslash escapes; {text}
/// stands as it is and may contain line breaks.
struct MessageForm {
  Message message;
  LogLevel level;
  std::string_view text;
};

/// One form for each message, in the order of the enumerators.
inline constexpr auto messageForms = std::to_array<MessageForm>({
    // The text of an exception or of the D-Bus library, as the reason for the next line.
    {Message::ErrorText, LogLevel::Error, "{text}"},

    {Message::NoProxy, LogLevel::Error, "Failed to create dbus proxy for KRV service"},
    {Message::NoList, LogLevel::Error, "Failed to get a list of packages to pre-install"},
    {Message::Installed, LogLevel::Info, "The package successfully pre-installed: {path}"},
    {Message::InstallFailed, LogLevel::Error, "Failed to pre-install package: {path}"},
    {Message::Skipping, LogLevel::Info, "Skipping package pre-installation: {path}"},
    {Message::TimeSpent, LogLevel::Info, "Time spent for pre-installation: {number} seconds"},

    {Message::Unreadable, LogLevel::Error, "Failed to read RPM package: {path}"},
    {Message::RemovedByUser, LogLevel::Info, "The package was manually removed by the user: {path}"},
    {Message::NotNewer, LogLevel::Error,
     "The package version is lower than or equal to the version of an already installed package: {path}"},
    {Message::DeveloperMismatch, LogLevel::Error,
     "Package developer doesn't match with the developer of an already installed package: {path}"},
    {Message::VersionNotParsed, LogLevel::Error, "Failed to parse rpm package version: {text}"},
    {Message::UnexpectedComparison, LogLevel::Error, "Unexpected result of comparing rpm versions"},
    {Message::VersionsNotCompared, LogLevel::Warning,
     "Failed to compare the package version with the version of an already installed package: {path}"},
    {Message::NoRpmConfiguration, LogLevel::Warning, "Couldn't read RPM configuration files"},
    {Message::UnexpectedEntryType, LogLevel::Warning, "Unexpected entry type in rpm package"},

    {Message::QueryFailed, LogLevel::Error, "Failed to query information about installed package: {text}"},
    {Message::NoInstalledVersion, LogLevel::Error, "Failed to determinate package version: {text}"},
    {Message::NoInstalledKey, LogLevel::Error, "Failed to determinate package developer key id: {text}"},
    {Message::InstallationError, LogLevel::Error, "Package installation error: {text}"},

    {Message::RecordsNotRead, LogLevel::Error, "Failed to read records from krv registry"},
    {Message::NoLockFile, LogLevel::Error, "Couldn't create the registry lock file: {path}"},
    {Message::NoLock, LogLevel::Error, "Couldn't get an exclusive registry lock"},
    {Message::RegistryNotOpened, LogLevel::Error, "Couldn't open registry: {path}"},
    {Message::RecordsNotLoaded, LogLevel::Error, "Couldn't load registry records"},
    {Message::RecordsNotWritten, LogLevel::Error, "Couldn't write records to the next registry: {path}"},
    {Message::RegistryNotReplaced, LogLevel::Error, "Couldn't atomically update registry: {path} -> {path}"},
    {Message::BadRecord, LogLevel::Warning, "Bad registry record found: '{text}'"},
    {Message::UnknownRecordKey, LogLevel::Warning, "Registry record contains unknown key: {text}"},
    {Message::RecordWithoutTimestamp, LogLevel::Warning, "Registry record doesn't contains timestamp"},
    {Message::RecordWithoutEvent, LogLevel::Warning, "Registry record doesn't contains event type"},
    {Message::RecordWithUnknownEvent, LogLevel::Warning, "Registry record contains unknown event type"},
    {Message::RecordWithoutPackage, LogLevel::Warning, "Registry record doesn't contains package id"},
    {Message::RecordWithoutKey, LogLevel::Warning, "Registry record doesn't contains key id"},
    {Message::RecordTimestampNotParsed, LogLevel::Warning, "Couldn't parse timestamp from registry record: {text}"},

    {Message::SymlinkNotCopied, LogLevel::Warning, "Coulnd't copy symlink {path} to {path}"},
    {Message::SymlinkLeavesDirectory, LogLevel::Warning,
     "Symlink target is not in the same directory: {path} -> {path}"},
    {Message::CopiesSymlinkTarget, LogLevel::Info, "Trying to copy content of the symlink target"},
    {Message::FileNotCleanedUp, LogLevel::Warning, "Couldn't cleanup bad copied file: {path}"},
    {Message::DirectoryNotCleanedUp, LogLevel::Warning, "Couldn't cleanup bad copied directory: {path}"},
});

namespace MessageDetails {

template <typename Value>
constexpr std::string_view placeholderOf() {
  static_assert(!std::is_array_v<Value>, "a fixed text belongs to the form of its message");
  if constexpr (std::is_same_v<Value, std::filesystem::path>)
    return "{path}";
  else if constexpr (std::is_integral_v<Value>)
    return "{number}";
  else
    return "{text}";
}

/// Whether the placeholders of `text` are `placeholders`, in this order.
constexpr bool hasPlaceholders(std::string_view text, std::initializer_list<std::string_view> placeholders) {
  for (const std::string_view placeholder : placeholders) {
    text.remove_prefix(std::min(text.find('{'), text.size()));
    if (!text.starts_with(placeholder))
      return false;
    text.remove_prefix(placeholder.size());
  }
  return text.find('{') == text.npos;
}

template <typename Value>
void insert(LogMessage& line, std::string_view& text, const Value& value) {
  line << text.substr(0, text.find('{')) << value;
  text.remove_prefix(text.find('}') + 1);
}

constexpr bool areInOrder() {
  for (std::size_t i = 0; i < messageForms.size(); ++i)
    if (messageForms[i].message != static_cast<Message>(i))
      return false;
  return true;
}
static_assert(areInOrder());

} // namespace MessageDetails

/// Writes one line of the log, as LogMessage does: the text of `message` with `values` for its placeholders.
///
///   logLine<Message::Unreadable>(path);
template <Message message, typename... Values>
void logLine(const Values&... values) {
  constexpr MessageForm form = messageForms[static_cast<std::size_t>(message)];
  static_assert(MessageDetails::hasPlaceholders(form.text, {MessageDetails::placeholderOf<Values>()...}));
  LogMessage line(form.level);
  std::string_view rest = form.text;
  (MessageDetails::insert(line, rest, values), ...);
  line << rest;
}
