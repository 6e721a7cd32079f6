#include "programs/zerotouchd/history/RunMemory.h"

#include <algorithm>
#include <filesystem>

#include "platform/kel/WholeFile.h"
#include "platform/model/values/Grammar.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouchd/Events.h"

namespace {

using Kel::Value;
using Kel::ValueList;
using Kel::ValueMap;

constexpr std::size_t maxFileBytes = 128 << 10;
constexpr std::size_t maxRuns = 10;
constexpr std::size_t maxSummaryBytes = 8 << 10;
constexpr std::size_t failuresOfRun = 3;  // in its summary
constexpr std::size_t mostEntries = 100;  // of each collection of the history

// The summaries in the file. One that is damaged, or was written by somebody else, counts as empty.
ValueList summariesIn(Kel::String const& path) {
  std::error_code error;
  if (std::filesystem::file_size(path, error) > maxFileBytes || error) return {};
  auto const text = Kel::readFile(path);
  if (!text) return {};
  try {
    Value const file = Statebase::parseJson(*text);
    Value const* const runs = Statebase::member(file, "runs");
    auto const* const list = runs != nullptr ? runs->as<ValueList>() : nullptr;
    if (list == nullptr) return {};
    ValueList result;
    for (auto const& run : *list) {
      if (run.as<ValueMap>() != nullptr && Statebase::dumpJson(run).size() <= maxSummaryBytes)
        result.push_back(run);
    }
    if (result.size() > maxRuns) result.erase(result.begin(), result.end() - maxRuns);
    return result;
  } catch (Statebase::JsonError const&) {
    return {};
  }
}

// The last entries of a collection.
Value lastOf(Value const& collection, std::size_t most) {
  auto const* const all = collection.as<ValueMap>();
  if (all == nullptr) return collection;
  auto const skipped = static_cast<std::ptrdiff_t>(all->size() - std::min(all->size(), most));
  return ValueMap(all->begin() + skipped, all->end());
}

// An object without one of its members.
Value without(Value const& object, std::string_view name) {
  auto const* const members = object.as<ValueMap>();
  if (members == nullptr) return object;
  ValueMap result = *members;
  std::erase_if(result, [&](auto const& member) { return member.first == name; });
  return result;
}

// Events without their explanations, which the command line knows.
Value brief(Value const& events) {
  auto const* const all = events.as<ValueMap>();
  if (all == nullptr) return events;
  ValueMap result;
  for (auto const& [number, event] : *all)
    result.emplace_back(number, without(without(event, "explanation"), "action"));
  return result;
}

}  // namespace

RunMemory::RunMemory(Kel::String path, Statebase::Tree const& tree)
    : path_(std::move(path)), tree_(tree), earlier_(summariesIn(path_)) {
  Kel::removeUnfinished(path_);
}

void RunMemory::follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& machine,
                       Kel::Ptr<History::Log const> const& log) {
  if (!machine && due_) write();
  attempts_ = {};
  reload_ = {};
  write_.cancel();
  machine_ = machine;
  log_ = log;
  if (!machine) return;
  attempts_ = Kel::Reactor(log, &History::Log::NotifieeConst::onAttempt, this, &RunMemory::attemptChanged);
  // The events of the end of a run are raised right before the reload is requested.
  reload_ = Kel::Reactor(machine, &ZeroTouch::ZeroTouchSmModel::NotifieeConst::onReloadRequested, [this] {
    if (machine_->reloadRequested()) write_.at(Kel::now());
    due_ = due_ || machine_->reloadRequested();
  });
}

void RunMemory::attemptChanged(std::uint64_t number) {
  auto const attempt = log_->attempt(number);
  if (attempt.ended <= 0 || number == lastEnded_) return;
  lastEnded_ = number;
  due_ = true;
  if (!machine_->reloadRequested()) write_.at(std::max(Kel::now(), written_ + pause));
}

void RunMemory::write() {
  due_ = false;
  written_ = Kel::now();
  std::string text;
  for (std::size_t entries = mostEntries; entries > 0; entries /= 2) {
    text = Statebase::dumpJson(remembered(entries)) + "\n";
    if (text.size() <= maxFileBytes) break;
  }
  constexpr unsigned onlyOurs = 0600;
  Kel::String const failure = Kel::replaceFile(path_, text, onlyOurs, false);
  if (failure != failure_ && !failure.empty()) say("the history is not kept: " + failure, warningPriority);
  failure_ = failure;
  if (failure.empty()) flush();
}

// A busy flash can take seconds to store the file, so a child waits for it. If the power fails before, the
// file may be lost.
void RunMemory::flush() {
  if (flusher_ && !flusher_->ended()) return;
  char const* const argv[] = {"/bin/sync", path_.c_str(), nullptr};
  flusher_ = Kel::run(argv, -1, -1, -1, -1);
}

Value RunMemory::summary() const {
  ValueMap result{{"started", machine_->startTime()}, {"ended", 0.0}, {"provisioned", false}};
  ValueList failures;
  std::uint32_t attempts = 0;
  bool hasBootFile = false;
  for (auto const& [number, attempt] : log_->attempt()) {
    attempts = attempt.number;
    hasBootFile = !attempt.url.empty();
    if (attempt.ended > 0 && !attempt.success) {
      failures.push_back(ValueMap{{"time", attempt.ended},
                                  {"attempt", attempt.number},
                                  {"port", attempt.port},
                                  {"url", attempt.url},
                                  {"outcome", attempt.outcome}});
    }
    result = {{"started", machine_->startTime()},
              {"ended", attempt.ended},
              {"provisioned", attempt.success},
              {"port", attempt.port},
              {"family", attempt.family},
              {"server", attempt.server},
              {"url", attempt.url},
              {"outcome", attempt.outcome}};
  }
  if (failures.size() > failuresOfRun) failures.erase(failures.begin(), failures.end() - failuresOfRun);
  result.emplace_back("attempts", attempts);
  result.emplace_back("failures", std::move(failures));
  // The machine keeps the signer until its next download, so an attempt without one has none.
  if (hasBootFile && !machine_->bootFileSigner().empty())
    result.emplace_back("signer", machine_->bootFileSigner());
  return result;
}

// All that the file holds, with at most so many entries of each collection of the history.
Value RunMemory::remembered(std::size_t entries) const {
  ValueMap machine;
  for (auto const* const attribute : machine_->entityType()->attributes()) {
    bool const shown =
        attribute->kind == Kel::AttributeKind::value || attribute->name == std::string_view("choosenIntf");
    if (!shown) continue;
    Value value = tree_.getOrNull(std::string("/zerotouch/sm/") + attribute->name);
    if (auto const* const text = value.as<std::string>()) value = Grammar::withoutPasswords(*text);
    machine.emplace_back(attribute->name, std::move(value));
  }
  ValueMap history;
  Value const all = tree_.getOrNull("/log/history");
  if (auto const* const members = all.as<ValueMap>()) {
    for (auto const& [name, value] : *members) history.emplace_back(name, lastOf(value, entries));
  }
  ValueMap tree{
      {"zerotouch", ValueMap{{"config", tree_.getOrNull("/zerotouch/config")},
                             {"status", tree_.getOrNull("/zerotouch/status")},
                             {"sm", std::move(machine)}}},
      {"log", ValueMap{{"history", std::move(history)},
                       {"events",
                        ValueMap{{"event", brief(lastOf(tree_.getOrNull("/log/events/event"), entries))}}}}},
      {"entityMib", ValueMap{{"status", tree_.getOrNull("/entityMib/status")}}}};
  ValueList runs = earlier_;
  runs.push_back(summary());
  if (runs.size() > maxRuns) runs.erase(runs.begin());
  return ValueMap{{"time", Kel::now()}, {"runs", std::move(runs)}, {"tree", std::move(tree)}};
}
