// attempts: one line for each attempt, and how long the run was in each state.
#include <algorithm>
#include <map>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/past/Memory.h"

namespace ZeroTouchCommand {

namespace {

using Kel::Value;

constexpr char const* attemptsPath = "/log/history/attempt";
constexpr char const* statesPath = "/log/history/state";

Kel::ValueMap membersOf(Value const& value) {
  auto const* const members = value.as<Kel::ValueMap>();
  return members != nullptr ? *members : Kel::ValueMap();
}

std::string orDash(std::string const& text) { return text.empty() ? "-" : text; }

Rows attemptRows(Kel::ValueMap const& attempts, Kel::Seconds now) {
  Rows rows{{"No", "Began", "Port", "DHCP", "Boot file", "Outcome", "Took"}};
  std::string const today = dateAndTime(now).substr(0, 10);
  for (auto const& [number_, attempt] : attempts) {
    double const started = number(at(attempt, {"started"}));
    double const ended = number(at(attempt, {"ended"}));
    std::string const time = dateAndTime(started);
    rows.push_back({memberText(attempt, "number"), time.starts_with(today) ? time.substr(11) : time,
                    orDash(memberText(attempt, "port")), orDash(memberText(attempt, "family")),
                    orDash(memberText(attempt, "url")),
                    ended > 0 ? memberText(attempt, "outcome") : "goes on",
                    duration((ended > 0 ? ended : now) - started)});
  }
  return rows;
}

// How often the run was in a state, and for how long.
struct Stay {
  std::string state;
  std::uint64_t times = 0;
  Kel::Seconds total = 0, longest = 0;
};

// The state in which the run was longest comes first.
std::vector<Stay> staysOf(Kel::ValueMap const& states, Kel::Seconds now) {
  std::map<std::string, Stay> byState;
  for (std::size_t i = 0; i < states.size(); ++i) {
    bool const isLast = i + 1 == states.size();
    Kel::Seconds const end = isLast ? now : number(at(states[i + 1].second, {"time"}));
    Kel::Seconds const lasted = std::max(0.0, end - number(at(states[i].second, {"time"})));
    std::string const name = memberText(states[i].second, "state");
    Stay& stay = byState.try_emplace(name, Stay{name}).first->second;
    ++stay.times;
    stay.total += lasted;
    stay.longest = std::max(stay.longest, lasted);
  }
  std::vector<Stay> result;
  for (auto const& [name, stay] : byState) result.push_back(stay);
  std::ranges::stable_sort(result, std::greater(), &Stay::total);
  return result;
}

}  // namespace

void showAttempts(Context const& context) {
  Snapshot const snapshot = lastKnown(context, {attemptsPath, statesPath});
  auto const attempts = membersOf(snapshot[attemptsPath]);
  auto const stays = staysOf(membersOf(snapshot[statesPath]), snapshot.time());
  if (context.json) {
    Kel::ValueList list, states;
    for (auto const& [number, attempt] : attempts) list.push_back(attempt);
    for (auto const& stay : stays) {
      states.push_back(Kel::ValueMap{
          {"state", stay.state}, {"times", stay.times}, {"total", stay.total}, {"longest", stay.longest}});
    }
    printJson(Kel::ValueMap{{"attempts", std::move(list)}, {"states", std::move(states)}});
    return;
  }
  if (attempts.empty()) {
    print("There was no attempt yet.\n");
  } else {
    print(table(attemptRows(attempts, snapshot.time())));
  }
  Rows rows{{"State", "Times", "Total", "Longest"}};
  for (auto const& stay : stays) {
    rows.push_back(
        {stay.state, std::to_string(stay.times), preciseDuration(stay.total), preciseDuration(stay.longest)});
  }
  if (!stays.empty()) print("\n" + table(rows));
}

}  // namespace ZeroTouchCommand
