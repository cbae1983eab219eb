// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/received_call.h"

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string_view>
#include <vector>

namespace Support {

namespace {

std::string quoted(const std::string& text) {
  std::ostringstream out;
  out << std::quoted(text);
  return out.str();
}

std::string orEmpty(const char* text) {
  return text != nullptr ? text : "";
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
  std::string text;
  for (const std::string& part : parts)
    text.append(text.empty() ? "" : separator).append(part);
  return text;
}

std::string valueText(sd_bus_message* message, char type, const std::string& contents);

std::vector<std::string> valueTexts(sd_bus_message* message) {
  std::vector<std::string> values;
  char type = 0;
  const char* contents = nullptr;
  while (sd_bus_message_peek_type(message, &type, &contents) > 0)
    values.push_back(valueText(message, type, orEmpty(contents)));
  return values;
}

std::string basicText(sd_bus_message* message, char type) {
  union {
    const char* text;
    int number;
    std::uint32_t positive;
  } value = {};
  sd_bus_message_read_basic(message, type, &value);
  switch (type) {
  case 's':
  case 'o':
  case 'g':
    return quoted(orEmpty(value.text));
  case 'b':
    return value.number != 0 ? "true" : "false";
  case 'i':
    return std::to_string(value.number);
  case 'u':
    return std::to_string(value.positive);
  default:
    return std::string("a value of type ") + type;
  }
}

std::string valueText(sd_bus_message* message, char type, const std::string& contents) {
  if (std::string_view("arev").find(type) == std::string_view::npos)
    return basicText(message, type);
  sd_bus_message_enter_container(message, type, contents.c_str());
  std::vector<std::string> values = valueTexts(message);
  sd_bus_message_exit_container(message);
  const bool isDictionary = type == 'a' && contents.starts_with('{');
  if (isDictionary)
    std::sort(values.begin(), values.end());
  switch (type) {
  case 'r':
    return "(" + joined(values, ", ") + ")";
  case 'e':
    return joined(values, ": ");
  case 'v':
    return "<" + contents + " " + joined(values, ", ") + ">";
  default:
    return isDictionary ? "{" + joined(values, ", ") + "}" : "[" + joined(values, ", ") + "]";
  }
}

} // namespace

std::ostream& operator<<(std::ostream& out, const ReceivedCall& call) {
  out << call.destination << " " << call.path << " " << call.interface << "." << call.member << "(" << call.signature
      << ") " << call.arguments;
  return out << (call.expectsReply ? "" : ", no reply expected") << (call.startsService ? "" : ", no automatic start")
             << (call.allowsInteraction ? ", interactive authorization" : "");
}

ReceivedCall getPackageCall(const std::string& name) {
  return {"GetPackage", "s", quoted(name)};
}

ReceivedCall installCall(const std::string& path) {
  return {"Install", "sa{sv}",
          quoted(path) + R"( {"OverrideSource": <(ss) (".pre.installed.apps", "")>, "ShowNotifications": <b false>, )"
                         R"("ShowPrompt": <b false>})"};
}

ReceivedCall receivedCall(sd_bus_message* message) {
  ReceivedCall call{orEmpty(sd_bus_message_get_member(message)), orEmpty(sd_bus_message_get_signature(message, 1)),
                    joined(valueTexts(message), " ")};
  sd_bus_message_rewind(message, 1);
  call.destination = orEmpty(sd_bus_message_get_destination(message));
  call.path = orEmpty(sd_bus_message_get_path(message));
  call.interface = orEmpty(sd_bus_message_get_interface(message));
  call.expectsReply = sd_bus_message_get_expect_reply(message) > 0;
  call.startsService = sd_bus_message_get_auto_start(message) > 0;
  call.allowsInteraction = sd_bus_message_get_allow_interactive_authorization(message) > 0;
  return call;
}

} // namespace Support
