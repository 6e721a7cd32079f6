// events: what has happened, the oldest first, or with --follow what happens. explain: what an event means
// and what to do about it, which needs no host, since the texts are built in.
#include <algorithm>

#include "platform/kel/Log.h"
#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

constexpr char const* eventsPath = "/log/events/event";

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

void show(Context const& context, Kel::Value const& event) {
  if (event == Kel::Value()) return;  // the host has dropped an old event to make room
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

void showEvents(Context const& context) {
  Kel::Value const events = context.call("get", {{"path", eventsPath}});
  auto const* members = events.as<Kel::ValueMap>();
  Kel::ValueList list;
  for (auto const& [number, event] : members != nullptr ? *members : Kel::ValueMap()) {
    list.push_back(event);
    if (!context.json) print(lineOf(event));
  }
  if (context.json) printJson(list);
}

// Ends when it is interrupted, when the host goes away, and when nobody reads its output any more.
void followEvents(Context const& context) {
  Statebase::Client host(context.socketPath);
  Kel::Value const events = host.call("watch", {{"path", eventsPath}});
  auto const* members = events.as<Kel::ValueMap>();
  for (auto const& [number, event] : members != nullptr ? *members : Kel::ValueMap()) show(context, event);
  context.whileHostRuns([&] {
    while (flushOutput() == 0) {
      if (auto const changed = host.readNotification(Kel::never))
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
