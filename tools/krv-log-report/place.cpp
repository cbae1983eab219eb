// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-log-report/place.h"

#include <stdexcept>

namespace LogReport {

// No default: the compiler has to report a message without a place.
Place placeOf(Message message) {
  using Kind = Place::Kind;
  switch (message) {
  case Message::ErrorText:
  case Message::InstallationError:
  case Message::NoInstalledVersion:
  case Message::NoInstalledKey:
  case Message::VersionNotParsed:
  case Message::QueryFailed:
    return {.kind = Kind::Text};

  case Message::Installed:
    return {.kind = Kind::Outcome, .outcome = Outcome::Installed};
  case Message::InstallFailed:
    return {.kind = Kind::Outcome, .outcome = Outcome::Failed, .reason = Reason::ServiceError};
  case Message::Skipping:
    return {.kind = Kind::Outcome, .outcome = Outcome::Skipped};

  case Message::Unreadable:
    return {.kind = Kind::Cause, .reason = Reason::Unreadable};
  case Message::RemovedByUser:
    return {.kind = Kind::Cause, .reason = Reason::RemovedByUser};
  case Message::NotNewer:
    return {.kind = Kind::Cause, .reason = Reason::NotNewer};
  case Message::DeveloperMismatch:
    return {.kind = Kind::Cause, .reason = Reason::DeveloperMismatch};

  case Message::NoProxy:
    return {.kind = Kind::End, .end = End::NoService};
  case Message::NoList:
    return {.kind = Kind::End, .end = End::NoList};
  case Message::TimeSpent:
    return {.kind = Kind::End, .end = End::Complete};

  case Message::NoLock:
  case Message::UnexpectedComparison:
  case Message::VersionsNotCompared:
  case Message::NoRpmConfiguration:
  case Message::RecordsNotRead:
  case Message::NoLockFile:
  case Message::RegistryNotOpened:
  case Message::BadRecord:
  case Message::UnknownRecordKey:
  case Message::RecordWithoutTimestamp:
  case Message::RecordWithoutEvent:
  case Message::RecordWithUnknownEvent:
  case Message::RecordWithoutPackage:
  case Message::RecordWithoutKey:
  case Message::RecordTimestampNotParsed:
    return {.kind = Kind::Remark};

  case Message::UnexpectedEntryType:
  case Message::RecordsNotLoaded:
  case Message::RecordsNotWritten:
  case Message::RegistryNotReplaced:
  case Message::SymlinkNotCopied:
  case Message::SymlinkLeavesDirectory:
  case Message::CopiesSymlinkTarget:
  case Message::FileNotCleanedUp:
  case Message::DirectoryNotCleanedUp:
    return {.kind = Kind::Elsewhere};
  }
  throw std::logic_error("a message without a number");
}

} // namespace LogReport
