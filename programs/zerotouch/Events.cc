// events: what has happened, the oldest first, or with --follow what happens. explain: what an event means
// and what to do about it, which needs no host, since the texts are built in.
#include <algorithm>

#include "platform/kel/Log.h"
#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"
#include "programs/zerotouch/past/Memory.h"
#include "programs/zerotouch/past/Words.h"

namespace ZeroTouchCommand {

namespace {

constexpr char const* eventsPath = "/log/events/event";
constexpr char const* attemptsPath = "/log/history/attempt";

// The line of an event. Where it is too long for the terminal, it goes on below the text, not below the time.
std::string lineOf(Kel::Value const& event) {
  std::string const time = dateAndTime(number(at(event, {"time"}))) + "  ";
  auto const level = static_cast<std::uint64_t>(number(at(event, {"severity"})));
  std::string const severity = severityWord(level);
  std::string const padded = severity + std::string(severity.size() < 7 ? 9 - severity.size() : 2, ' ');
  std::size_t const columns = outputColumns();
  std::size_t const indent = time.size() + padded.size();
  std::string const rest = text(at(event, {"name"})) + ": " + text(at(event, {"message"}));
  // On a narrow terminal, where little room is left beside the time, the text begins on a line of its own.
  if (columns > 0 && columns < indent + 40) {
    return styled(Style::faint, time) + styledSeverity(level, severity) + "\n  " +
           paragraph(rest, 2, columns);
  }
  return styled(Style::faint, time) + styledSeverity(level, padded) + paragraph(rest, indent, columns);
}

// Which events a choice means.
class Chosen {
 public:
  // Throws WrongUsage for a time or a severity that makes no sense, and for an attempt that is not known.
  Chosen(EventChoice const& choice, Kel::Value const& attempts, Kel::Seconds now)
      : last_(choice.last), worst_(severityOf(choice.severity)) {
    if (!choice.since.empty()) from_ = timeOf(choice.since, now);
    if (choice.attempt > 0) limitTo(choice.attempt, attempts);
  }

  bool shows(Kel::Value const& event) const {
    Kel::Seconds const time = number(at(event, {"time"}));
    return event != Kel::Value() && time >= from_ && time < to_ && number(at(event, {"severity"})) <= worst_;
  }

  // Those of the collection, in their order.
  Kel::ValueList of(Kel::Value const& events) const {
    Kel::ValueList result;
    if (auto const* const all = events.as<Kel::ValueMap>()) {
      for (auto const& [number, event] : *all) {
        if (shows(event)) result.push_back(event);
      }
    }
    if (last_ > 0 && result.size() > last_)
      result.erase(result.begin(), result.end() - static_cast<std::ptrdiff_t>(last_));
    return result;
  }

 private:
  // An attempt reaches until the next one begins, and the first from the beginning.
  void limitTo(std::uint64_t wanted, Kel::Value const& attempts) {
    auto const* const all = attempts.as<Kel::ValueMap>();
    bool found = false;
    for (auto const& [key, attempt] : all != nullptr ? *all : Kel::ValueMap()) {
      Kel::Seconds const started = number(at(attempt, {"started"}));
      if (found && to_ == Kel::never) to_ = started;
      if (number(at(attempt, {"number"})) != static_cast<double>(wanted)) continue;
      found = true;
      to_ = Kel::never;
      from_ = std::max(from_, wanted == 1 ? -Kel::never : started);
    }
    if (!found) throw WrongUsage("--attempt: attempt " + std::to_string(wanted) + " is not known");
  }

  std::uint64_t last_;
  double worst_;
  Kel::Seconds from_ = -Kel::never;
  Kel::Seconds to_ = Kel::never;
};

void show(Context const& context, Kel::Value const& event) {
  context.json ? printJsonLine(event) : print(lineOf(event));
}

Kel::Value json(Kel::LogHandle const& event) {
  return Kel::ValueMap{{"name", event.name()},
                       {"severity", event.severity()},
                       {"format", event.format()},
                       {"explanation", event.explanation()},
                       {"action", event.recommendedAction()}};
}

bool sameName(std::string const& a, std::string const& b) {
  return std::ranges::equal(
      a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

void listEvents(Context const& context) {
  Kel::ValueList list;
  Rows rows{{"Event", "Severity", "Message"}};
  for (auto const* event : Kel::logHandles()) {
    list.push_back(json(*event));
    rows.push_back({event->name(), severityWord(event->severity()), event->format()});
  }
  context.json ? printJson(list) : print(table(rows));
}

void explainOne(Context const& context, Kel::LogHandle const& event) {
  if (context.json) {
    printJson(json(event));
    return;
  }
  print(styled(Style::heading, event.name()) + "\n\n" +
        facts({{"Severity:", severityWord(event.severity())},
               {"Message:", event.format()},
               {"Meaning:", event.explanation()},
               {"What to do:", event.recommendedAction()}}));
}

}  // namespace

void showEvents(Context const& context, EventChoice const& choice) {
  Snapshot const snapshot = lastKnown(context, {eventsPath, attemptsPath});
  Kel::ValueList const list =
      Chosen(choice, snapshot[attemptsPath], snapshot.time()).of(snapshot[eventsPath]);
  if (context.json) {
    printJson(list);
    return;
  }
  for (auto const& event : list) print(lineOf(event));
}

// Ends when it is interrupted, when the host goes away, and when nobody reads its output any more.
void followEvents(Context const& context, EventChoice const& choice) {
  Statebase::Client host(context.socketPath);
  Chosen const chosen(choice, host.get({attemptsPath})[attemptsPath], number(host.call("time", {})));
  Kel::Value const events = host.call("watch", {{"path", eventsPath}});
  for (auto const& event : chosen.of(events)) show(context, event);
  context.whileHostRuns([&] {
    while (flushOutput() == 0) {
      auto const changed = host.readNotification(Kel::never);
      if (changed && chosen.shows(at(changed->params, {"value"})))
        show(context, at(changed->params, {"value"}));
    }
  });
}

void explain(Context const& context, std::string const& name) {
  if (name.empty()) {
    listEvents(context);
    return;
  }
  std::vector<std::string> names;
  for (auto const* event : Kel::logHandles()) {
    if (sameName(event->name(), name)) {
      explainOne(context, *event);
      return;
    }
    names.emplace_back(event->name());
  }
  throw WrongUsage("there is no event '" + name + "'" + didYouMean(name, names) +
                   "; zerotouch explain lists them");
}

}  // namespace ZeroTouchCommand
