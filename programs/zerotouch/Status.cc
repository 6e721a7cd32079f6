// status: where provisioning stands.
#include "programs/zerotouch/Status.h"

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
    return text(at(timer, {"name"})) + ", until " + dateAndTime(end) + " (in " + duration(end - now) +
           " of " + duration(timeout) + ")";
  }
  if (isTrue(at(machine, {"reloadRequested"}))) return "the reload, which was requested";
  if (state != "stateInit") return "no timer";
  return isTrue(at(tree, {"config", "enabled"})) ? "the hardware inventory to be ready" : "being enabled";
}

// The chosen port and the download, once there are such.
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

// Not the whole of the machine, which also holds every port. Null when no agent is loaded.
Kel::Value machineOf(Statebase::Client& host) {
  Kel::ValueMap machine;
  for (char const* const name :
       {"currentState", "transitionState", "stateTime", "startTime", "retryCount", "timer", "timerActive",
        "awaitsDhcpCleanup", "reloadRequested", "choosenIntf", "option67Uri", "bytesRead", "contentLength",
        "curlTransferDone", "curlSuccess", "curlErrorStr"}) {
    try {
      machine.emplace_back(name, host.call("get", {{"path", std::string("/zerotouch/sm/") + name}}));
    } catch (Statebase::CallError const&) {
      if (machine.empty()) return {};
      machine.emplace_back(name, nullptr);  // no timer was started yet
    }
  }
  return machine;
}

}  // namespace

Kel::Value fetchStatus(Statebase::Client& host) {
  return Kel::ValueMap{{"time", host.call("time", {})},
                       {"config", host.call("get", {{"path", "/zerotouch/config"}})},
                       {"status", host.call("get", {{"path", "/zerotouch/status"}})},
                       {"sm", machineOf(host)}};
}

Rows statusRows(Kel::Value const& tree) {
  Kel::Seconds const now = number(at(tree, {"time"}));
  Rows result{{"Provisioning:", provisioning(tree)}};
  Kel::Value const& machine = at(tree, {"sm"});
  if (machine == Kel::Value()) {
    result.push_back({"State:", "none, the agent is not loaded"});
  } else {
    result.push_back({"State:", text(at(machine, {"currentState"})) + ", for " +
                                    duration(now - number(at(machine, {"stateTime"})))});
    addAnswer(result, machine);
    result.push_back({"Retries:", text(at(machine, {"retryCount"}))});
    result.push_back({"Waits for:", waitsFor(tree, machine, now)});
    result.push_back({"Run time:", duration(now - number(at(machine, {"startTime"})))});
  }
  result.push_back({"Run time limit:", duration(number(at(tree, {"config", "maxRunTime"})))});
  result.push_back({"Script limit:", duration(number(at(tree, {"config", "scriptExecTimeout"})))});
  return result;
}

void showStatus(Context const& context) {
  Statebase::Client host(context.socketPath);
  Kel::Value const tree = fetchStatus(host);
  if (context.json) {
    printJson(tree);
  } else {
    print(facts(statusRows(tree)));
  }
}

}  // namespace ZeroTouchCommand
