// status: where provisioning stands.
#include "programs/zerotouch/Status.h"

#include <algorithm>

#include "platform/kel/Clock.h"
#include "platform/model/values/Grammar.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/ReporterStatus.h"
#include "programs/zerotouch/States.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

std::string provisioning(Kel::Value const& tree) {
  std::string const enabled = isTrue(at(tree, {"config", "enabled"})) ? "enabled" : "disabled";
  return isTrue(at(tree, {"config", "cancelled"})) ? enabled + ", cancelled" : enabled;
}

// With the date only when that is not today's.
std::string timeOfDay(Kel::Seconds time, Kel::Seconds now) {
  std::string const when = dateAndTime(time);
  bool const today = when.substr(0, 10) == dateAndTime(now).substr(0, 10);
  return today ? when.substr(11) : when;
}

std::string waitsFor(Kel::Value const& tree, Kel::Value const& machine, Kel::Seconds now) {
  std::string const state = text(at(machine, {"currentState"}));
  if (isTrue(at(machine, {"timerActive"}))) {
    Kel::Value const& timer = at(machine, {"timer"});
    Kel::Seconds const timeout = number(at(timer, {"timeout"}));
    Kel::Seconds const end = number(at(timer, {"initTime"})) + timeout;
    std::string const purpose = memberText(timer, "purpose");
    return text(at(timer, {"name"})) + (purpose.empty() ? "" : " (" + purpose + ")") + ", until " +
           timeOfDay(end, now) + " (" + duration(end - now) + " of " + duration(timeout) + " are left)";
  }
  if (isTrue(at(machine, {"reloadRequested"}))) return "the reload, which was requested";
  if (state != "stateInit") return "no timer";
  return isTrue(at(tree, {"config", "enabled"})) ? "the hardware inventory to be ready" : "being enabled";
}

// As in "7, download 2 of 4".
std::string attempt(Kel::Value const& machine) {
  std::string const state = memberText(machine, "currentState");
  std::string const result = text(at(machine, {"attempt"}));
  // A retry is counted when the wait for it begins.
  bool const waits = state == "stateRetryFetchConfig";
  if (!waits && state != "stateFetchConfig") return result;
  auto const last = static_cast<unsigned>(number(at(machine, {"configFetchTryCounter"}))) + (waits ? 0 : 1);
  auto const tries = static_cast<unsigned>(number(at(machine, {"maxConfigFetchTries"}))) + 1;
  return result + ", download " + std::to_string(last) + " of " + std::to_string(tries) +
         (waits ? " has failed" : "");
}

// Adds the chosen port and the download, once this attempt has such.
void addAnswer(Rows& rows, Kel::Value const& machine) {
  std::string const chosen = memberText(machine, "choosenIntf");
  if (!chosen.empty()) rows.push_back({"Chosen port:", chosen});
  std::string const url = memberText(at(machine, {"chosenAnswer"}), "url");
  if (url.empty()) return;
  rows.push_back({"Download:", url});
  double const size = number(at(machine, {"contentLength"}));
  std::string line = text(at(machine, {"bytesRead"}));
  if (size > 0) line += " of " + text(at(machine, {"contentLength"}));
  line += " bytes";
  bool const done = isTrue(at(machine, {"curlTransferDone"}));
  std::string const came = memberText(machine, "downloadOutcome");
  if (!done && came.empty() && memberText(machine, "currentState") != "stateFetchConfig") return;
  if (done || !came.empty()) line += isTrue(at(machine, {"curlSuccess"})) ? ", complete" : ", failed";
  rows.push_back({"Received:", came.empty() ? line : line + ": " + came});
  std::string const authorities = memberText(machine, "serverVerifiedAgainst");
  if (!authorities.empty()) rows.push_back({"Server:", "verified against " + authorities});
  std::string const signer = memberText(machine, "bootFileSigner");
  if (!signer.empty())
    rows.push_back({"Signed by:", signer + ", SHA-256 " + memberText(machine, "bootFileSignerFingerprint")});
}

// A line such as "14:03:22, attempt 6 on Ethernet1: the download has failed, http://10.0.0.1/x".
std::string lastFailure(Kel::Value const& failure, Kel::Seconds now) {
  std::string line =
      timeOfDay(number(at(failure, {"time"})), now) + ", attempt " + text(at(failure, {"attempt"}));
  std::string const port = memberText(failure, "port");
  std::string const url = memberText(failure, "url");
  if (!port.empty()) line += " on " + port;
  line += ": " + memberText(failure, "cause");
  return url.empty() ? line : line + ", " + url;
}

// What the agent says has to be done or, where it knows of nothing, what the state means for an operator.
std::string whatToDo(Kel::Value const& tree) {
  Kel::Value const& machine = at(tree, {"sm"});
  if (machine == Kel::Value()) return "find out why the host has no agent: journalctl -u zerotouchd";
  if (std::string const said = memberText(machine, "whatToDo"); !said.empty()) return said;
  std::string const end = outcome(tree);
  if (end == "provisioned") return "nothing: the switch reloads with what it was given";
  if (end == "cancelled") return "nothing: the switch reloads, with provisioning off for its next boot";
  if (!isTrue(at(tree, {"config", "enabled"}))) return "nothing, or zerotouch enable to let it run";
  return "nothing: it goes on by itself";
}

std::string const machinePath = "/zerotouch/sm/";
constexpr char const* hostStartsPath = "/log/history/hostStarts";
constexpr char const* lastHostEndPath = "/log/history/lastHostEnd";

// The attributes of the state machine that the status shows as they are; it also holds every port.
constexpr char const* machineAttributes[] = {"currentState",
                                             "transitionState",
                                             "transitionCause",
                                             "transitionReason",
                                             "stateTime",
                                             "startTime",
                                             "retryCount",
                                             "attempt",
                                             "timer",
                                             "timerActive",
                                             "awaitsDhcpCleanup",
                                             "reloadRequested",
                                             "choosenIntf",
                                             "chosenAnswer",
                                             "option67Uri",
                                             "bytesRead",
                                             "contentLength",
                                             "curlTransferDone",
                                             "curlSuccess",
                                             "curlErrorStr",
                                             "downloadOutcome",
                                             "whatToDo",
                                             "configFetchTryCounter",
                                             "maxConfigFetchTries",

                                             "serverVerifiedAgainst",
                                             "bootFileSigner",
                                             "bootFileSignerFingerprint",
                                             "bootFileSignedTime"};

// Those of the last failure, and as what they are shown.
constexpr std::pair<char const*, char const*> failureAttributes[] = {
    {"time", "lastFailureTime"},       {"state", "lastFailureState"}, {"attempt", "lastFailureAttempt"},
    {"problem", "lastFailureProblem"}, {"cause", "lastFailureCause"}, {"port", "lastFailurePort"},
    {"url", "lastFailureUrl"}};

}  // namespace

Snapshot::Snapshot(Statebase::Client& host, Paths const& paths, Reading reading)
    : values_(reading == Reading::follow ? host.watch(paths) : host.get(paths)),
      hostTime_(number(host.call("time", {}))),
      readAt_(Kel::now()),
      follows_(reading == Reading::follow) {}

Snapshot::Snapshot(Kel::Value const& tree, Paths const& paths, Kel::Seconds time)
    : hostTime_(time), readAt_(Kel::now()), follows_(false) {
  for (auto const& path : paths) values_[path] = at(tree, *Statebase::splitPath(path));
}

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
  Snapshot::Paths paths{hostStartsPath, lastHostEndPath, "/zerotouch/config", "/zerotouch/status"};
  for (char const* const name : machineAttributes) paths.push_back(machinePath + name);
  for (auto const& [shown, name] : failureAttributes) paths.push_back(machinePath + name);
  return paths;
}

namespace {

// What of the machine's attribute is shown. Of the answer that is enough which it is; the URL that was
// downloaded last is none of this attempt before it has an answer.
Kel::Value shown(std::string_view name, Snapshot const& snapshot) {
  Kel::Value const& value = snapshot[machinePath + std::string(name)];
  Kel::Value const& answer = snapshot[machinePath + "chosenAnswer"];
  if (name == "option67Uri") return answer == Kel::Value() ? "" : Grammar::withoutPasswords(text(value));
  if (name != "chosenAnswer") return value;
  return Kel::ValueMap{{"family", memberText(answer, "family")},
                       {"url", Grammar::withoutPasswords(memberText(answer, "url"))}};
}

}  // namespace

Kel::Value statusOf(Snapshot const& snapshot) {
  Kel::ValueMap machine, failure;
  for (char const* const name : machineAttributes) machine.emplace_back(name, shown(name, snapshot));
  for (auto const& [member, name] : failureAttributes)
    failure.emplace_back(member, snapshot[machinePath + name]);
  bool const loaded = machine.front().second != Kel::Value();
  bool const failed = number(failure.front().second) > 0;
  Kel::ValueMap result{{"time", snapshot.time()},
                       {"config", snapshot["/zerotouch/config"]},
                       {"status", snapshot["/zerotouch/status"]},
                       {"sm", loaded ? Kel::Value(std::move(machine)) : Kel::Value()},
                       {"lastFailure", failed ? Kel::Value(std::move(failure)) : Kel::Value()}};
  result.emplace_back(
      "host", Kel::ValueMap{{"starts", snapshot[hostStartsPath]}, {"lastEnd", snapshot[lastHostEndPath]}});
  result.emplace_back("outcome", outcome(result));
  result.emplace_back("whatToDo", whatToDo(result));
  return result;
}

Kel::Value fetchStatus(Statebase::Client& host) { return statusOf(Snapshot(host, statusPaths())); }

Rows statusRows(Kel::Value const& tree) {
  Kel::Seconds const now = number(at(tree, {"time"}));
  Rows result{{"Provisioning:", provisioning(tree)}};
  Kel::Value const& machine = at(tree, {"sm"});
  bool const loaded = machine != Kel::Value();
  if (loaded) {
    result.push_back(
        {"State:", stateInWords(tree) + ", for " + duration(now - number(at(machine, {"stateTime"})))});
    std::string const reason = memberText(machine, "transitionReason");
    bool const repeated = reason == memberText(at(tree, {"lastFailure"}), "cause");
    if (!reason.empty() && !repeated) result.push_back({"Because:", reason});
    if (number(at(machine, {"attempt"})) > 0) result.push_back({"Attempt:", attempt(machine)});
  } else {
    result.push_back({"State:", "none, the agent is not loaded"});
  }
  Kel::Value const& failure = at(tree, {"lastFailure"});
  if (failure != Kel::Value()) result.push_back({"Last failure:", lastFailure(failure, now)});
  result.push_back({"What to do:", memberText(tree, "whatToDo")});
  if (loaded) {
    addAnswer(result, machine);
    result.push_back({"Waits for:", waitsFor(tree, machine, now)});
    if (number(at(machine, {"attempt"})) > 0)
      result.push_back({"Run time:", duration(now - number(at(machine, {"startTime"})))});
  }
  result.push_back({"Run time limit:", duration(number(at(tree, {"config", "maxRunTime"})))});
  result.push_back({"Script limit:", duration(number(at(tree, {"config", "scriptExecTimeout"})))});
  Kel::Value const& host = at(tree, {"host"});
  if (number(at(host, {"starts"})) > 1) {
    result.push_back({"Host:", "was started " + memberText(host, "starts") +
                                   " times in this boot; the last one " + memberText(host, "lastEnd")});
  }
  Kel::Value const& reporter = at(tree, {"reporter"});
  if (reporter != Kel::Value()) result.push_back({"Reporter:", reporterInWords(reporter)});
  return result;
}

void printStatus(Context const& context, Kel::Value const& tree) {
  context.json ? printJson(tree) : print(facts(statusRows(tree)));
}

Kel::Value withReporter(Kel::Value status, std::string const& socketPath) {
  auto reporter = reporterStatus(socketPath);
  if (reporter == Kel::Value()) return status;
  Kel::ValueMap members = *status.as<Kel::ValueMap>();
  members.emplace_back("reporter", std::move(reporter));
  return members;
}

}  // namespace ZeroTouchCommand
