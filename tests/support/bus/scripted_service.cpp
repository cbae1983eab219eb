// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/scripted_service.h"

#include "tests/support/process/wait.h"

#include <cstdint>
#include <memory>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Support {

namespace {

constexpr const char* serviceName = "velta.KRV";

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;

struct MessageReleaser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageReleaser>;

int checked(int result, const char* what) {
  if (result < 0)
    throw std::system_error(-result, std::generic_category(), what);
  return result;
}

Bus connect() {
  sd_bus* bus = nullptr;
  checked(sd_bus_open_system(&bus), "the service cannot connect");
  return Bus(bus);
}

/// Collects every call before the bus library can answer it.
int collect(sd_bus_message* message, void* calls, sd_bus_error*) {
  if (sd_bus_message_is_method_call(message, nullptr, nullptr) <= 0)
    return 0;
  static_cast<std::vector<Message>*>(calls)->emplace_back(sd_bus_message_ref(message));
  return 1;
}

std::string firstText(sd_bus_message* call) {
  const char* text = "";
  if (sd_bus_message_read_basic(call, 's', &text) <= 0)
    text = "";
  const std::string copy = text;
  sd_bus_message_rewind(call, 1);
  return copy;
}

bool isInstallation(sd_bus_message* call) {
  return sd_bus_message_is_method_call(call, nullptr, "Install") > 0;
}

/// The calls to all services.
class InstallationRecord {
public:
  void addAsked(sd_bus_message* call) {
    const std::scoped_lock lock(m_mutex);
    m_installations.asked.push_back(firstText(call));
  }

  void addSucceeded(sd_bus_message* call) {
    const std::scoped_lock lock(m_mutex);
    m_installations.succeeded.push_back(firstText(call));
  }

  ScriptedService::Installations take() {
    const std::scoped_lock lock(m_mutex);
    return std::exchange(m_installations, {});
  }

private:
  std::mutex m_mutex;
  ScriptedService::Installations m_installations;
};

InstallationRecord installationRecord;

} // namespace

/// The connection of the service, and the work of its thread.
class ScriptedService::Worker {
public:
  explicit Worker(ScriptedService& service) : m_service(service), m_bus(connect()) {
    checked(sd_bus_add_filter(m_bus.get(), nullptr, &collect, &m_arrived), "the service cannot listen");
    checked(sd_bus_request_name(m_bus.get(), serviceName, service.m_claim == Claim::OrWait ? SD_BUS_NAME_QUEUE : 0),
            "the service cannot take its name");
  }

  /// Runs until the service leaves, dies or loses the bus.
  void run() {
    while (m_bus) {
      const int processed = sd_bus_process(m_bus.get(), nullptr);
      if (processed < 0)
        return;
      for (const Message& call : std::exchange(m_arrived, {}))
        receive(call.get());
      carryOutWishes();
      if (processed == 0 && m_bus)
        sleep();
    }
  }

private:
  void receive(sd_bus_message* call) {
    Reaction reaction;
    {
      const std::scoped_lock lock(m_service.m_mutex);
      m_service.m_calls.push_back(receivedCall(call));
      reaction = m_service.reactionTo(sd_bus_message_get_member(call), firstText(call));
    }
    if (isInstallation(call))
      installationRecord.addAsked(call);
    if (reaction.waitsForRelease)
      m_waiting.emplace_back(sd_bus_message_ref(call), reaction);
    else
      react(call, reaction);
  }

  void react(sd_bus_message* call, const Reaction& reaction) {
    if (!m_bus || reaction.kind == Reaction::Kind::Silence)
      return;
    if (reaction.kind == Reaction::Kind::Death) {
      m_bus.reset();
      return;
    }
    if (reaction.leavesFirst)
      sd_bus_release_name(m_bus.get(), serviceName);
    sd_bus_message* reply = nullptr;
    checked(reaction.makeReply(call, &reply), "the scripted answer cannot be made");
    const Message owner(reply);
    if (isInstallation(call) && sd_bus_message_is_method_error(reply, nullptr) <= 0)
      installationRecord.addSucceeded(call);
    // It is not an error if the client or the bus has disappeared meanwhile.
    sd_bus_send(m_bus.get(), reply, nullptr);
    if (reaction.leavesFirst) {
      sd_bus_flush(m_bus.get());
      m_bus.reset();
    }
  }

  void carryOutWishes() {
    bool isReleased = false;
    bool mustNudge = false;
    bool mustLeave = false;
    {
      const std::scoped_lock lock(m_service.m_mutex);
      isReleased = m_service.m_isReleased;
      mustNudge = std::exchange(m_service.m_mustNudge, false);
      mustLeave = m_service.m_mustLeave;
    }
    if (mustNudge)
      nudgeClients();
    if (isReleased) {
      for (const auto& [call, reaction] : std::exchange(m_waiting, {}))
        react(call.get(), reaction);
    }
    if (mustLeave && m_bus) {
      sd_bus_release_name(m_bus.get(), serviceName);
      m_bus.reset();
    }
  }

  void nudgeClients() const {
    for (const auto& [call, reaction] : m_waiting) {
      sd_bus_message* signal = nullptr;
      checked(sd_bus_message_new_signal(m_bus.get(), &signal, "/velta/KRV", serviceName, "Nudge"), "no signal");
      const Message owner(signal);
      sd_bus_send_to(m_bus.get(), signal, sd_bus_message_get_sender(call.get()), nullptr);
    }
  }

  void sleep() const {
    pollfd descriptors[] = {{sd_bus_get_fd(m_bus.get()), static_cast<short>(sd_bus_get_events(m_bus.get())), 0},
                            {m_service.m_wakeUp, POLLIN, 0}};
    poll(descriptors, 2, -1);
    std::uint64_t ignored = 0;
    if (descriptors[1].revents != 0 && read(m_service.m_wakeUp, &ignored, sizeof ignored) < 0)
      return; // a spurious wake-up
  }

  ScriptedService& m_service;
  std::vector<Message> m_arrived;
  std::vector<std::pair<Message, Reaction>> m_waiting;
  Bus m_bus; // is destroyed first, because it still uses the filter
};

ScriptedService::Installations ScriptedService::takeInstallations() {
  return installationRecord.take();
}

ScriptedService::ScriptedService(Claim claim, const std::function<void(ScriptedService&)>& script)
    : m_claim(claim), m_wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  onGetPackage().fail("velta.KRV.Error.PackageNotExist", "The package does not exist");
  onInstall().succeed();
  if (script)
    script(*this);
  arrive();
}

ScriptedService::~ScriptedService() {
  leave();
  close(m_wakeUp);
}

ScriptedService::Script ScriptedService::onGetPackage(std::optional<std::string> name) {
  return {*this, "GetPackage", std::move(name)};
}

ScriptedService::Script ScriptedService::onInstall(std::optional<std::string> path) {
  return {*this, "Install", std::move(path)};
}

void ScriptedService::hasInstalled(const std::string& name, const std::string& version,
                                   const std::string& developerKeyId) {
  onGetPackage(name).answer({{"general.version", version}, {"certificate.id", developerKeyId}});
}

std::vector<ReceivedCall> ScriptedService::calls() const {
  const std::scoped_lock lock(m_mutex);
  return m_calls;
}

bool ScriptedService::waitForCalls(std::size_t count) const {
  return waitUntil([this, count] { return calls().size() >= count; });
}

void ScriptedService::release() {
  wish(m_isReleased);
}

void ScriptedService::nudge() {
  wish(m_mustNudge);
}

void ScriptedService::leave() {
  wish(m_mustLeave);
  waitForDeparture();
}

void ScriptedService::arrive() {
  waitForDeparture();
  m_mustLeave = false;
  m_thread = std::thread([worker = std::make_unique<Worker>(*this)] { worker->run(); });
}

void ScriptedService::waitForDeparture() {
  if (m_thread.joinable())
    m_thread.join();
}

void ScriptedService::decide(const std::string& member, const std::optional<std::string>& argument, Reaction reaction) {
  const std::scoped_lock lock(m_mutex);
  m_script[{member, argument}] = std::move(reaction);
}

ScriptedService::Reaction ScriptedService::reactionTo(const std::string& member, const std::string& argument) const {
  for (const auto& key :
       {std::pair{member, std::optional(argument)}, std::pair{member, std::optional<std::string>()}}) {
    if (const auto found = m_script.find(key); found != m_script.end())
      return found->second;
  }
  return {Reaction::Kind::Reply, [](sd_bus_message* call, sd_bus_message** reply) {
            const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(SD_BUS_ERROR_UNKNOWN_METHOD, "Not in the script");
            return sd_bus_message_new_method_error(call, reply, &error);
          }};
}

void ScriptedService::wish(bool& flag) {
  {
    const std::scoped_lock lock(m_mutex);
    flag = true;
  }
  eventfd_write(m_wakeUp, 1);
}

ScriptedService::Script& ScriptedService::Script::whenReleased() {
  m_reaction.waitsForRelease = true;
  return *this;
}

ScriptedService::Script& ScriptedService::Script::beforeLeaving() {
  m_reaction.leavesFirst = true;
  return *this;
}

void ScriptedService::Script::answer(const Dictionary& entries) {
  reply([entries](sd_bus_message* reply) {
    int result = sd_bus_message_open_container(reply, 'a', "{ss}");
    for (const auto& [key, value] : entries) {
      if (result >= 0)
        result = sd_bus_message_append(reply, "{ss}", key.c_str(), value.c_str());
    }
    return result < 0 ? result : sd_bus_message_close_container(reply);
  });
}

void ScriptedService::Script::succeed() {
  reply([](sd_bus_message*) { return 0; });
}

void ScriptedService::Script::fail(const std::string& name, const std::optional<std::string>& message) {
  m_reaction.makeReply = [name, message](sd_bus_message* call, sd_bus_message** reply) {
    const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(name.c_str(), message ? message->c_str() : nullptr);
    return sd_bus_message_new_method_error(call, reply, &error);
  };
  decide(Reaction::Kind::Reply);
}

void ScriptedService::Script::keepSilent() {
  decide(Reaction::Kind::Silence);
}

void ScriptedService::Script::die() {
  decide(Reaction::Kind::Death);
}

void ScriptedService::Script::reply(const Fill& fill) {
  m_reaction.makeReply = [fill](sd_bus_message* call, sd_bus_message** reply) {
    const int result = sd_bus_message_new_method_return(call, reply);
    return result < 0 ? result : fill(*reply);
  };
  decide(Reaction::Kind::Reply);
}

void ScriptedService::Script::decide(Reaction::Kind kind) {
  m_reaction.kind = kind;
  m_service.decide(m_member, m_argument, m_reaction);
}

} // namespace Support
