// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/bus/received_call.h"

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <systemd/sd-bus.h>

namespace Support {

/// The package-manager service "velta.KRV" as a test wants it, on the system bus of the process. It records whatever
/// is sent to it, and answers as it was told last:
///
///   ScriptedService service;
///   service.hasInstalled("app", "1.0-1", "key");
///   service.onGetPackage("other").fail("velta.KRV.Error.Internal", "No luck");
///   service.onInstall("/b.rpm").whenReleased().succeed();
///   ...
///   EXPECT_EQ(service.calls(), (std::vector{getPackageCall("app")}));
///
/// Unless told otherwise nothing is installed, every installation succeeds, and calls of other methods fail. The
/// service is a thread with a connection of its own; its script may be changed at any time.
class ScriptedService {
public:
  /// The entries of an answer, as they are put on the wire: in this order, and again if a key comes again.
  using Dictionary = std::vector<std::pair<std::string, std::string>>;
  class Script;

  /// What to do when another one has the name.
  enum class Claim { OrThrow, OrWait };

  /// Returns when the service has its name, or its place behind who has it now. Throws without a bus.
  explicit ScriptedService(Claim claim = Claim::OrThrow);
  ~ScriptedService();
  ScriptedService(const ScriptedService&) = delete;
  ScriptedService& operator=(const ScriptedService&) = delete;

  /// What to do about a call with this first argument, or about those with any other.
  Script onGetPackage(std::optional<std::string> name = std::nullopt);
  Script onInstall(std::optional<std::string> path = std::nullopt);
  void hasInstalled(const std::string& name, const std::string& version, const std::string& developerKeyId);

  /// Everything that was sent to the service, in order.
  std::vector<ReceivedCall> calls() const;
  /// Waits until so many calls have come; false when they do not come.
  bool waitForCalls(std::size_t count) const;

  /// Sends the answers that wait for it, now and from now on.
  void release();
  /// Sends the clients of those answers an unrelated signal each: a message that is not the one they wait for.
  void nudge();

  /// Gives the name back and disconnects; returns when the bus has noticed.
  void leave();
  /// Connects again and takes the name, after leave() or a scripted departure.
  void arrive();
  /// Waits until the service is gone, be it as scripted or with the bus.
  void waitForDeparture();

private:
  class Worker;

  struct Reaction {
    enum class Kind { Reply, Silence, Death };
    Kind kind = Kind::Silence;
    std::function<int(sd_bus_message* call, sd_bus_message** reply)> makeReply = {};
    bool waitsForRelease = false;
    bool leavesFirst = false;
  };

  void decide(const std::string& member, const std::optional<std::string>& argument, Reaction reaction);
  Reaction reactionTo(const std::string& member, const std::string& argument) const;
  void wish(bool& flag);

  /// Guards the script, the record and the three wishes.
  mutable std::mutex m_mutex;
  std::map<std::pair<std::string, std::optional<std::string>>, Reaction> m_script;
  std::vector<ReceivedCall> m_calls;
  bool m_isReleased = false;
  bool m_mustNudge = false;
  bool m_mustLeave = false;

  Claim m_claim;
  int m_wakeUp; ///< an eventfd
  std::thread m_thread;
};

/// One sentence of the script. Everything but the two modifiers ends it.
class ScriptedService::Script {
public:
  /// The answer waits for release().
  Script& whenReleased();
  /// The service gives its name back, then answers, then disconnects: nothing sent after the answer can reach it.
  Script& beforeLeaving();

  void answer(const Dictionary& entries);
  void succeed();
  /// An answer of any type, written the way of sd_bus_message_append(3): `types` and then ints and C strings.
  template <typename... Arguments>
  void answerAs(const char* types, Arguments... arguments);
  /// An error; without a message the error carries no argument at all.
  void fail(const std::string& name, const std::optional<std::string>& message = std::nullopt);
  /// No answer, as long as the service lives.
  void keepSilent();
  /// The connection breaks without an answer.
  void die();

private:
  friend class ScriptedService;
  using Fill = std::function<int(sd_bus_message* reply)>;

  Script(ScriptedService& service, std::string member, std::optional<std::string> argument)
      : m_service(service), m_member(std::move(member)), m_argument(std::move(argument)) {}
  void reply(const Fill& fill);
  void decide(Reaction::Kind kind);

  ScriptedService& m_service;
  std::string m_member;
  std::optional<std::string> m_argument;
  Reaction m_reaction;
};

template <typename... Arguments>
void ScriptedService::Script::answerAs(const char* types, Arguments... arguments) {
  reply([=](sd_bus_message* reply) { return sd_bus_message_append(reply, types, arguments...); });
}

} // namespace Support
