// status: where provisioning stands.
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string provisioning(Kel::Value const& tree) {
  std::string const enabled = isTrue(at(tree, {"config", "enabled"})) ? "enabled" : "disabled";
  return isTrue(at(tree, {"config", "cancelled"})) ? enabled + ", cancelled" : enabled;
}

std::string timer(Kel::Value const& machine, Kel::Seconds now) {
  if (!isTrue(at(machine, {"timerActive"}))) return "none";
  Kel::Value const& timer = at(machine, {"timer"});
  Kel::Seconds const timeout = number(at(timer, {"timeout"}));
  Kel::Seconds const end = number(at(timer, {"initTime"})) + timeout;
  return text(at(timer, {"name"})) + ", until " + dateAndTime(end) + " (in " + duration(end - now) + " of " +
         duration(timeout) + ")";
}

Rows rows(Kel::Value const& tree, Kel::Seconds now) {
  Rows result{{"Provisioning:", provisioning(tree)}};
  Kel::Value const& machine = at(tree, {"sm"});
  if (machine == Kel::Value()) {
    result.push_back({"State:", "none, the agent is not loaded"});
  } else {
    result.push_back({"State:", text(at(machine, {"currentState"})) + ", for " +
                                    duration(now - number(at(machine, {"stateTime"})))});
    result.push_back({"Retries:", text(at(machine, {"retryCount"}))});
    result.push_back({"Waits for:", timer(machine, now)});
    result.push_back({"Run time:", duration(now - number(at(machine, {"startTime"})))});
  }
  result.push_back({"Run time limit:", duration(number(at(tree, {"config", "maxRunTime"})))});
  result.push_back({"Script limit:", duration(number(at(tree, {"config", "scriptExecTimeout"})))});
  return result;
}

void showStatus(Context const& context) {
  Statebase::Client host(context.socketPath);
  Kel::Value const tree = host.call("get", {{"path", "/zerotouch"}});
  Kel::Value const now = host.call("time", {});
  if (context.json) {
    Kel::ValueMap all{{"time", now}};
    if (auto const* members = tree.as<Kel::ValueMap>())
      all.insert(all.end(), members->begin(), members->end());
    printJson(all);
  } else {
    print(table(rows(tree, number(now))));
  }
}

}  // namespace

void addStatus(CLI::App& program, Context const& context) {
  program.add_subcommand("status", "Show where provisioning stands")->callback([&context] {
    showStatus(context);
  });
}

}  // namespace ZeroTouchCommand
