// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <iosfwd>
#include <string>

#include <systemd/sd-bus.h>

namespace Support {

/// A received message. The defaults are those of an ordinary method call of the package-manager service.
struct ReceivedCall {
  std::string member;
  std::string signature;
  /// The arguments, separated by spaces: text in double quotes, variants as <type value>, structures in (), arrays in
  /// [], dictionaries in {} with sorted entries, because their order has no meaning.
  std::string arguments;
  std::string destination = "velta.KRV";
  std::string path = "/velta/KRV";
  std::string interface = "velta.KRV";
  bool expectsReply = true;
  bool startsService = true;
  bool allowsInteraction = false;

  bool operator==(const ReceivedCall&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ReceivedCall& call);

/// The two calls that a correct client sends.
ReceivedCall getPackageCall(const std::string& name);
ReceivedCall installCall(const std::string& path);

/// Describes a received message, and rewinds it.
ReceivedCall receivedCall(sd_bus_message* message);

} // namespace Support
