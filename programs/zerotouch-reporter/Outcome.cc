#include "programs/zerotouch-reporter/Outcome.h"

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"
#include "platform/statebase/Json.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace {

constexpr char const* reportedPath = "/flash/zerotouch-reported";
constexpr std::size_t largest = 1 << 20;  // of a file that is believed

Kel::Value const* walk(Kel::Value const& from, std::initializer_list<char const*> names) {
  Kel::Value const* at = &from;
  for (char const* const name : names) {
    if (at != nullptr) at = Statebase::member(*at, name);
  }
  return at;
}

Kel::Seconds seconds(Kel::Value const* value) {
  if (value == nullptr) return 0;
  if (auto const* const real = value->as<double>()) return *real;
  if (auto const* const whole = value->as<std::int64_t>()) return static_cast<double>(*whole);
  if (auto const* const natural = value->as<std::uint64_t>()) return static_cast<double>(*natural);
  return 0;
}

Kel::Value const& lastOf(Kel::Value const* list) {
  static Kel::Value const nothing;
  auto const* const items = list != nullptr ? list->as<Kel::ValueList>() : nullptr;
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
  auto const text = Kel::readFile(ZeroTouch::filePathFromFSRoot(ZeroTouch::historyPath));
  if (!text || text->size() > largest) return std::nullopt;
  try {
    Kel::Value const file = Statebase::parseJson(*text);
    Kel::Value const& run = lastOf(walk(file, {"runs"}));
    Outcome outcome;
    outcome.started = seconds(walk(run, {"started"}));
    outcome.ended = seconds(walk(run, {"ended"}));
    if (outcome.ended <= 0) return std::nullopt;
    if (Kel::readFile(ZeroTouch::filePathFromFSRoot(reportedPath)) == mark(outcome)) return std::nullopt;
    auto const* const success = walk(run, {"provisioned"});
    outcome.provisioned = success != nullptr && *success == Kel::Value(true);
    auto const* const serial = walk(file, {"tree", "entityMib", "status", "root", "serialNum"});
    if (serial != nullptr && serial->as<std::string>() != nullptr)
      outcome.serial = *serial->as<std::string>();
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
