#include "programs/zerotouch-reporter/Outcome.h"

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"
#include "platform/statebase/Json.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

using Statebase::at;
using Statebase::number;
using Statebase::text;

namespace {

constexpr char const* reportedPath = "/flash/zerotouch-reported";
constexpr std::size_t largest = 1 << 20;  // of a file that is believed

Kel::Value const& lastOf(Kel::Value const& list) {
  static Kel::Value const nothing;
  auto const* const items = list.as<Kel::ValueList>();
  return items == nullptr || items->empty() ? nothing : items->back();
}

Kel::String mark(Outcome const& outcome) { return Kel::format("%f %f\n", outcome.started, outcome.ended); }

// What is told of a run: the members that the host has written for people, as they are.
Kel::ValueMap told(Kel::Value const& run, bool provisioned) {
  Kel::ValueMap data{{"name", provisioned ? "provisioned" : "failed"}, {"severity", provisioned ? 5U : 3U}};
  for (auto const& [from, to] : {std::pair{"outcome", "message"}, std::pair{"port", "port"},
                                 std::pair{"url", "url"}, std::pair{"attempts", "attempt"}}) {
    if (auto const* const value = Statebase::member(run, from)) data.emplace_back(to, *value);
  }
  return data;
}

}  // namespace

std::optional<Outcome> lastOutcome() {
  auto const stored = Kel::readFile(ZeroTouch::filePathFromFSRoot(ZeroTouch::historyPath));
  if (!stored || stored->size() > largest) return std::nullopt;
  try {
    Kel::Value const file = Statebase::parseJson(*stored);
    Kel::Value const& run = lastOf(at(file, {"runs"}));
    Outcome outcome;
    outcome.started = number(at(run, {"started"}));
    outcome.ended = number(at(run, {"ended"}));
    if (outcome.ended <= 0) return std::nullopt;
    if (Kel::readFile(ZeroTouch::filePathFromFSRoot(reportedPath)) == mark(outcome)) return std::nullopt;
    outcome.provisioned = at(run, {"provisioned"}) == Kel::Value(true);
    outcome.serial = text(at(file, {"tree", "entityMib", "status", "root", "serialNum"}));
    outcome.data = told(run, outcome.provisioned);
    return outcome;
  } catch (Statebase::JsonError const&) {  // a damaged file tells nothing
    return std::nullopt;
  }
}

Kel::String outcomeReported(Outcome const& outcome) {
  constexpr unsigned onlyOurs = 0600;
  return Kel::replaceFile(ZeroTouch::filePathFromFSRoot(reportedPath), mark(outcome), onlyOurs, false);
}
