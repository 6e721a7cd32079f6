#include "programs/zerotouch-reporter/HostEvents.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "platform/statebase/Json.h"

using Statebase::at;
using Statebase::number;
using Statebase::text;

namespace {

constexpr Kel::Seconds shortestPause = 2;  // between two attempts to reach the host; it doubles
constexpr Kel::Seconds longestPause = 30;
constexpr Kel::Seconds together = 0.1;    // within which what belongs to an event arrives
constexpr std::size_t mostEntries = 200;  // of states and attempts, as many as an event may need

constexpr char const* events = "/log/events/event";
constexpr char const* states = "/log/history/state";
constexpr char const* attempts = "/log/history/attempt";
constexpr char const* chassis = "/entityMib/status/root/serialNum";

std::uint64_t key(std::string_view digits) {
  std::uint64_t result = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), result);
  return result;
}

// The last entry that had begun at this time; null when none had.
Kel::Value const& lastBefore(std::map<std::uint64_t, Kel::Value> const& entries, char const* began,
                             Kel::Seconds time) {
  static Kel::Value const nothing;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    if (number(at(entry->second, {began})) <= time) return entry->second;
  }
  return nothing;
}

}  // namespace

HostEvents::HostEvents(Kel::String socketPath, HostPosition last, Take take)
    : socketPath_(std::move(socketPath)), last_(last), take_(std::move(take)), pause_(shortestPause) {
  again_.in(0);
}

void HostEvents::connect() {
  try {
    client_ = std::make_unique<Statebase::Client>(socketPath_, 5);
    auto const present = client_->watch({events, states, attempts, chassis});
    for (auto const& [path, value] : present) {
      if (auto const* const members = value.as<Kel::ValueMap>()) {
        for (auto const& [name, entry] : *members) changed(Statebase::join(path, name), entry);
      } else {
        changed(path, value);
      }
    }
    watched_ = Kel::makePtr<Kel::FileDescriptor>();
    watched_->descriptorIs(client_->descriptor());
    watched_->notifyOnReadableIs(true);
    readable_ =
        Kel::Reactor(watched_, &Kel::FileDescriptor::NotifieeConst::onReadableCount, [this] { read(); });
    soon_.in(0);
    pause_ = shortestPause;
  } catch (std::runtime_error const&) {  // there is no host now, or it is busy
    disconnect();
  }
}

void HostEvents::disconnect() {
  readable_ = {};
  if (watched_) watched_->descriptorIs(-1);
  watched_ = nullptr;
  client_ = nullptr;
  takeEvents();
  for (Entries* const entries : {&events_, &states_, &attempts_}) entries->clear();
  again_.in(pause_);
  pause_ = std::min(2 * pause_, longestPause);
}

void HostEvents::read() {
  constexpr Kel::Seconds atOnce = 1e-6;
  try {
    while (auto const notification = client_->readNotification(atOnce))
      changed(text(at(notification->params, {"path"})), at(notification->params, {"value"}));
  } catch (std::runtime_error const&) {  // the host has ended
    disconnect();
  }
}

void HostEvents::changed(std::string const& path, Kel::Value const& value) {
  if (path == chassis && value != Kel::Value()) serial_ = text(value);
  for (auto const& [collection, entries] :
       {std::pair{events, &events_}, std::pair{states, &states_}, std::pair{attempts, &attempts_}}) {
    if (!Statebase::isWithin(path, collection) || path == collection || value == Kel::Value()) continue;
    (*entries)[key(path.substr(std::string_view(collection).size() + 1))] = value;
    if (entries != &events_ && entries->size() > mostEntries) entries->erase(entries->begin());
  }
  if (!events_.empty()) soon_.in(together);
}

void HostEvents::takeEvents() {
  auto const known = events_.find(last_.number);
  // A host that was started anew counts its events from 1 again.
  bool const sameHost = known != events_.end() ? number(at(known->second, {"time"})) == last_.time
                                               : events_.empty() || events_.begin()->first > last_.number;
  if (!sameHost) last_ = {};
  for (auto const& [number_, value] : events_) {
    if (number_ <= last_.number) continue;
    last_ = {number_, number(at(value, {"time"}))};
    take_(serial_,
          {.position = last_, .name = text(at(value, {"name"})), .time = last_.time, .data = dataOf(value)});
  }
  // The last one tells the next time whether the host is still the same.
  while (events_.size() > 1) events_.erase(events_.begin());
}

Kel::ValueMap HostEvents::dataOf(Kel::Value const& event) const {
  Kel::Seconds const time = number(at(event, {"time"}));
  Kel::Value const& state = lastBefore(states_, "time", time);
  Kel::Value const& attempt = lastBefore(attempts_, "started", time);
  return {{"name", at(event, {"name"})},       {"severity", at(event, {"severity"})},
          {"message", at(event, {"message"})}, {"state", at(state, {"state"})},
          {"cause", at(state, {"reason"})},    {"port", at(attempt, {"port"})},
          {"attempt", at(attempt, {"number"})}};
}
