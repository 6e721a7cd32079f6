#include "programs/zerotouch/report/Report.h"

#include <algorithm>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/past/Memory.h"

namespace ZeroTouchCommand {

namespace {

using Kel::Value;

// The entries of a numbered collection, in the order of their numbers.
Value values(Value const& collection) {
  Kel::ValueList list;
  if (auto const* const members = collection.as<Kel::ValueMap>()) {
    for (auto const& [number, value] : *members) list.push_back(value);
  }
  return list;
}

template <typename T, typename Read>
std::vector<T> each(Value const& fetched, char const* name, Read read) {
  std::vector<T> result;
  if (auto const* const list = at(fetched, {name}).as<Kel::ValueList>()) {
    for (Value const& entry : *list) result.push_back(read(entry));
  }
  return result;
}

Kel::Seconds time(Value const& entry, char const* name = "time") { return number(at(entry, {name})); }

bool isOver(Run const& run) {
  if (run.states.empty()) return false;
  return run.states.back().name == "stateInit" || isTrue(at(run.status, {"sm", "reloadRequested"}));
}

// Sets which time the picture shows, which is neither the hours before the run nor those after it.
void setBounds(Run& run) {
  run.start = run.states.empty() ? run.now : run.states.front().time;
  auto const first = std::ranges::find_if(run.states, [](auto const& s) { return s.name != "stateInit"; });
  if (first != run.states.end()) run.start = first->time;
  run.end = run.now;
  if (!isOver(run) || first == run.states.end()) return;
  Kel::Seconds const last = std::max(run.states.back().time, run.start);
  run.end = std::min(run.now, last + std::max(1.0, (last - run.start) / 20));
}

}  // namespace

Value fetchRun(Context const& context) {
  constexpr char const* historyPath = "/log/history";
  constexpr char const* eventsPath = "/log/events/event";
  constexpr char const* inventoryPath = "/entityMib/status";
  Snapshot::Paths paths = statusPaths();
  for (char const* const path : {historyPath, eventsPath, inventoryPath}) paths.emplace_back(path);
  Snapshot const snapshot = lastKnown(context, paths);
  Value const& inventory = snapshot[inventoryPath];
  auto const member = [&](char const* name) { return values(at(snapshot[historyPath], {name})); };
  auto const root = [&](char const* name) { return memberText(at(inventory, {"root"}), name); };
  return Kel::ValueMap{
      {"time", snapshot.time()},
      {"status", statusOf(snapshot)},
      {"inventory", Kel::ValueMap{{"modelName", root("modelName")},
                                  {"serialNum", root("serialNum")},
                                  {"systemMacAddr", memberText(inventory, "systemMacAddr")}}},
      {"states", member("state")},
      {"timers", member("timer")},
      {"ports", member("port")},
      {"changes", member("change")},
      {"events", values(snapshot[eventsPath])},
      {"attempts", member("attempt")}};
}

Run runOf(Value const& fetched) {
  Run run;
  run.now = time(fetched);
  run.status = at(fetched, {"status"});
  Value const& inventory = at(fetched, {"inventory"});
  run.model = memberText(inventory, "modelName");
  run.serial = memberText(inventory, "serialNum");
  run.systemMac = memberText(inventory, "systemMacAddr");
  run.states = each<Run::State>(fetched, "states", [&](Value const& s) {
    return Run::State{time(s), run.now, memberText(s, "state"), memberText(s, "reason")};
  });
  for (std::size_t i = 1; i < run.states.size(); ++i) run.states[i - 1].end = run.states[i].time;
  run.timers = each<Run::Timer>(fetched, "timers", [&](Value const& t) {
    Kel::Seconds const ended = time(t, "ended");
    return Run::Timer{memberText(t, "name"),       time(t, "started"), time(t, "timeout"),
                      ended > 0 ? ended : run.now, ended <= 0,         isTrue(at(t, {"ranOut"}))};
  });
  run.ports = each<Run::PortReport>(fetched, "ports", [](Value const& p) {
    return Run::PortReport{time(p), memberText(p, "port"), memberText(p, "source"), memberText(p, "report"),
                           memberText(p, "detail")};
  });
  run.changes = each<Run::Change>(fetched, "changes", [](Value const& c) {
    return Run::Change{time(c), memberText(c, "what"), memberText(c, "where"), memberText(c, "value"),
                       isTrue(at(c, {"undone"}))};
  });
  run.events = each<Run::Event>(fetched, "events", [](Value const& e) {
    return Run::Event{time(e), static_cast<std::uint64_t>(number(at(e, {"severity"}))), memberText(e, "name"),
                      memberText(e, "message")};
  });
  run.attempts = each<Run::Attempt>(fetched, "attempts", [&](Value const& a) {
    bool const goesOn = time(a, "ended") <= 0;
    return Run::Attempt{
        memberText(a, "number"),  time(a, "started"),         goesOn ? run.now : time(a, "ended"),
        memberText(a, "port"),    memberText(a, "family"),    memberText(a, "url"),
        memberText(a, "outcome"), isTrue(at(a, {"success"})), goesOn};
  });
  setBounds(run);
  return run;
}

bool isApplied(Run::Change const& change) {
  return !change.what.starts_with("provisioning ") && change.what != "reload";
}

}  // namespace ZeroTouchCommand
