// events: what has happened, the oldest first, and with --follow what happens.
#include <memory>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Severity.h"
#include "programs/zerotouch/Table.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

constexpr char const* eventsPath = "/log/events/event";

// A line each, which a terminal that is too narrow for it wraps behind the time.
std::string lineOf(Kel::Value const& event) {
  std::string const time = dateAndTime(number(at(event, {"time"}))) + "  ";
  auto const level = static_cast<std::uint64_t>(number(at(event, {"severity"})));
  std::string const severity = severityWord(level);
  std::string const padded = severity + std::string(severity.size() < 7 ? 9 - severity.size() : 2, ' ');
  std::size_t const columns = outputColumns();
  std::size_t const indent = time.size() + padded.size();
  std::string const rest = text(at(event, {"name"})) + ": " + text(at(event, {"message"}));
  // Where little is left beside the time, the text goes below it.
  if (columns > 0 && columns < indent + 40) {
    return styled(Style::faint, time) + styledSeverity(level, severity) + "\n  " +
           paragraph(rest, 2, columns);
  }
  return styled(Style::faint, time) + styledSeverity(level, padded) + paragraph(rest, indent, columns);
}

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

void show(Context const& context, Kel::Value const& event) {
  if (event == Kel::Value()) return;  // forgotten, for a newer one
  context.json ? printJsonLine(event) : print(lineOf(event));
}

// Until interrupted, or the host goes away, or nobody reads any more.
void follow(Context const& context) {
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

}  // namespace

void addEvents(CLI::App& program, Context const& context) {
  auto* const verb = addVerb(
      program, "events", "Show what has happened",
      {"zerotouch events", "zerotouch events --follow", "zerotouch events --follow --json | jq .name"});
  auto const following = std::make_shared<bool>(false);
  verb->add_flag("-f,--follow", *following, "Go on with what happens, until interrupted");
  verb->callback([&context, following] { *following ? follow(context) : showEvents(context); });
}

}  // namespace ZeroTouchCommand
