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

/// The package-manager service "velta.KRV" with scripted behaviour, on the system bus of the process. It records all
/// messages that it gets. The last setting for a call decides its answer:
///
///   ScriptedService service;
///   service.hasInstalled("app", "1.0-1", "key");
///   service.onGetPackage("other").fail("velta.KRV.Error.Internal", "No luck");
///   service.onInstall("/b.rpm").whenReleased().succeed();
///   ...
///   EXPECT_EQ(service.calls(), (std::vector{getPackageCall("app")}));
///
/// By default nothing is installed, every installation succeeds, and calls of other methods fail. The service is a
/// thread with its own connection; its script may be changed at any time.
class ScriptedService {
public:
  /// The entries of an answer, sent in this order, including repeated keys.
  using Dictionary = std::vector<std::pair<std::string, std::string>>;
  class Script;

  /// What to do if another connection has the name.
  enum class Claim { OrThrow, OrWait };

  /// Returns when the service has its name or, with OrWait, its place in the queue for it. `script` is called before
  /// that, for a service that must not get a call before it has its script. Throws without a bus.
  explicit ScriptedService(Claim claim = Claim::OrThrow, const std::function<void(ScriptedService&)>& script = {});
  ~ScriptedService();
  ScriptedService(const ScriptedService&) = delete;
  ScriptedService& operator=(const ScriptedService&) = delete;

  /// The script for calls with this first argument, or for calls with any other.
  Script onGetPackage(std::optional<std::string> name = std::nullopt);
  Script onInstall(std::optional<std::string> path = std::nullopt);
  void hasInstalled(const std::string& name, const std::string& version, const std::string& developerKeyId);

  /// The arguments of the Install calls to all services of this process since the last call of this function.
  struct Installations {
    std::vector<std::string> asked = {};
    std::vector<std::string> succeeded = {}; ///< those that were answered without an error
  };
  static Installations takeInstallations();

  /// All messages that the service has received, in order.
  std::vector<ReceivedCall> calls() const;
  /// Waits for `count` calls; false if they do not come within the deadline.
  bool waitForCalls(std::size_t count) const;

  /// Sends the answers that wait for it; later answers do not wait.
  void release();
  /// Sends an unrelated signal to each client that waits for such an answer.
  void nudge();

  /// Releases the name and disconnects; returns when the bus has noticed.
  void leave();
  /// Connects again and takes the name, after leave() or a scripted end.
  void arrive();
  /// Waits until the service has ended, as scripted or with its bus.
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

  /// Guards the script, the record and the three requests.
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

/// One rule of the script. Every function except the two modifiers completes it.
class ScriptedService::Script {
public:
  /// The answer waits for release().
  Script& whenReleased();
  /// The service releases its name, sends the answer and disconnects, so a message sent after the answer cannot reach
  /// it.
  Script& beforeLeaving();

  void answer(const Dictionary& entries);
  void succeed();
  /// An answer of any type, in the form of sd_bus_message_append(3): `types`, then ints and C strings.
  template <typename... Arguments>
  void answerAs(const char* types, Arguments... arguments);
  /// An error; without `message` it has no argument.
  void fail(const std::string& name, const std::optional<std::string>& message = std::nullopt);
  /// No answer while the service lives.
  void keepSilent();
  /// Disconnects without an answer.
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
