// status: where provisioning stands.
#include "programs/zerotouch/Status.h"

#include <algorithm>

#include "platform/kel/Clock.h"
#include "platform/model/values/Grammar.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

std::string provisioning(Kel::Value const& tree) {
  std::string const enabled = isTrue(at(tree, {"config", "enabled"})) ? "enabled" : "disabled";
  return isTrue(at(tree, {"config", "cancelled"})) ? enabled + ", cancelled" : enabled;
}

std::string waitsFor(Kel::Value const& tree, Kel::Value const& machine, Kel::Seconds now) {
  std::string const state = text(at(machine, {"currentState"}));
  if (isTrue(at(machine, {"timerActive"}))) {
    Kel::Value const& timer = at(machine, {"timer"});
    Kel::Seconds const timeout = number(at(timer, {"timeout"}));
    Kel::Seconds const end = number(at(timer, {"initTime"})) + timeout;
    std::string const purpose = memberText(timer, "purpose");
    return text(at(timer, {"name"})) + (purpose.empty() ? "" : " (" + purpose + ")") + ", until " + dateAndTime(end) + " (" + duration(end - now) + " of " +
           duration(timeout) + " are left)";
  }
  if (isTrue(at(machine, {"reloadRequested"}))) return "the reload, which was requested";
  if (state != "stateInit") return "no timer";
  return isTrue(at(tree, {"config", "enabled"})) ? "the hardware inventory to be ready" : "being enabled";
}

// Adds the chosen port and the download, once there are such.
void addAnswer(Rows& rows, Kel::Value const& machine) {
  std::string const chosen = memberText(machine, "choosenIntf");
  if (!chosen.empty()) rows.push_back({"Chosen port:", chosen});
  std::string const url = memberText(machine, "option67Uri");
  if (url.empty()) return;
  rows.push_back({"Download:", url});
  double const size = number(at(machine, {"contentLength"}));
  std::string line = text(at(machine, {"bytesRead"}));
  if (size > 0) line += " of " + text(at(machine, {"contentLength"}));
  line += " bytes";
  if (isTrue(at(machine, {"curlTransferDone"}))) {
    std::string const error = memberText(machine, "curlErrorStr");
    line += isTrue(at(machine, {"curlSuccess"})) ? ", complete" : ", failed: " + error;
  }
  rows.push_back({"Received:", line});
}

// A line such as "14:03:22 in stateFetchConfig on Ethernet1: the download has failed, http://10.0.0.1/x".
std::string lastFailure(Kel::Value const& failure, Kel::Seconds now) {
  std::string const when = dateAndTime(number(at(failure, {"time"})));
  bool const today = when.substr(0, 10) == dateAndTime(now).substr(0, 10);
  std::string line = (today ? when.substr(11) : when) + " in " + memberText(failure, "state");
  std::string const port = memberText(failure, "port");
  std::string const url = memberText(failure, "url");
  if (!port.empty()) line += " on " + port;
  line += ": " + memberText(failure, "cause");
  return url.empty() ? line : line + ", " + url;
}

std::string const machinePath = "/zerotouch/sm/";

// The attributes of the state machine that the status shows as they are; it also holds every port.
constexpr char const* machineAttributes[] = {
    "currentState", "transitionState", "transitionReason",  "stateTime",       "startTime",   "retryCount",
    "timer",        "timerActive",     "awaitsDhcpCleanup", "reloadRequested", "choosenIntf", "option67Uri",
    "bytesRead",    "contentLength",   "curlTransferDone",  "curlSuccess",     "curlErrorStr"};

// Those of the last failure, and as what they are shown.
constexpr std::pair<char const*, char const*> failureAttributes[] = {{"time", "lastFailureTime"},
                                                                     {"state", "lastFailureState"},
                                                                     {"cause", "lastFailureCause"},
                                                                     {"port", "lastFailurePort"},
                                                                     {"url", "lastFailureUrl"}};

}  // namespace

Snapshot::Snapshot(Statebase::Client& host, Paths const& paths, Reading reading)
    : values_(reading == Reading::follow ? host.watch(paths) : host.get(paths)),
      hostTime_(number(host.call("time", {}))),
      readAt_(Kel::now()),
      follows_(reading == Reading::follow) {}

Kel::Seconds Snapshot::time() const { return follows_ ? hostTime_ + (Kel::now() - readAt_) : hostTime_; }

void Snapshot::apply(std::string const& path, Kel::Value const& value) {
  if (auto const part = values_.find(path); part != values_.end()) {
    part->second = value;
    return;
  }
  std::size_t const slash = path.rfind('/');
  auto const parent = values_.find(path.substr(0, slash));
  if (parent == values_.end()) return;
  auto const* const members = parent->second.as<Kel::ValueMap>();
  if (members == nullptr) return;
  Kel::ValueMap changed = *members;
  std::string const name = path.substr(slash + 1);
  auto const member = std::ranges::find(changed, name, &Kel::ValueMap::value_type::first);
  member != changed.end() ? void(member->second = value) : void(changed.emplace_back(name, value));
  parent->second = std::move(changed);
}

Snapshot::Paths statusPaths() {
  Snapshot::Paths paths{"/zerotouch/config", "/zerotouch/status"};
  for (char const* const name : machineAttributes) paths.push_back(machinePath + name);
  for (auto const& [shown, name] : failureAttributes) paths.push_back(machinePath + name);
  return paths;
}

Kel::Value statusOf(Snapshot const& snapshot) {
  Kel::ValueMap machine, failure;
  for (char const* const name : machineAttributes) {
    machine.emplace_back(name, snapshot[machinePath + name]);
    if (std::string_view(name) == "option67Uri")
      machine.back().second = Grammar::withoutPasswords(text(machine.back().second));
  }
  for (auto const& [shown, name] : failureAttributes)
    failure.emplace_back(shown, snapshot[machinePath + name]);
  bool const loaded = machine.front().second != Kel::Value();
  bool const failed = number(failure.front().second) > 0;
  return Kel::ValueMap{{"time", snapshot.time()},
                       {"config", snapshot["/zerotouch/config"]},
                       {"status", snapshot["/zerotouch/status"]},
                       {"sm", loaded ? Kel::Value(std::move(machine)) : Kel::Value()},
                       {"lastFailure", failed ? Kel::Value(std::move(failure)) : Kel::Value()}};
}

Kel::Value fetchStatus(Statebase::Client& host) { return statusOf(Snapshot(host, statusPaths())); }

Rows statusRows(Kel::Value const& tree) {
  Kel::Seconds const now = number(at(tree, {"time"}));
  Rows result{{"Provisioning:", provisioning(tree)}};
  Kel::Value const& machine = at(tree, {"sm"});
  if (machine == Kel::Value()) {
    result.push_back({"State:", "none, the agent is not loaded"});
  } else {
    result.push_back({"State:", text(at(machine, {"currentState"})) + ", for " +
                                    duration(now - number(at(machine, {"stateTime"})))});
    std::string const reason = memberText(machine, "transitionReason");
    if (!reason.empty()) result.push_back({"Because:", reason});
    addAnswer(result, machine);
    result.push_back({"Retries:", text(at(machine, {"retryCount"}))});
    result.push_back({"Waits for:", waitsFor(tree, machine, now)});
    result.push_back({"Run time:", duration(now - number(at(machine, {"startTime"})))});
  }
  Kel::Value const& failure = at(tree, {"lastFailure"});
  if (failure != Kel::Value()) result.push_back({"Last failure:", lastFailure(failure, now)});
  result.push_back({"Run time limit:", duration(number(at(tree, {"config", "maxRunTime"})))});
  result.push_back({"Script limit:", duration(number(at(tree, {"config", "scriptExecTimeout"})))});
  return result;
}

void showStatus(Context const& context) {
  Statebase::Client host(context.socketPath);
  Kel::Value const tree = fetchStatus(host);
  context.json ? printJson(tree) : print(facts(statusRows(tree)));
}

}  // namespace ZeroTouchCommand
