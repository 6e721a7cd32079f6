// events: what has happened, the oldest first.
#include <array>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

std::string severityWord(Kel::Value const& severity) {
  static constexpr std::array words{"emergency", "alert",  "critical",      "error",
                                    "warning",   "notice", "informational", "debug"};
  auto const level = static_cast<std::size_t>(number(severity));
  return level < words.size() ? words[level] : std::to_string(level);
}

void showEvents(Context const& context) {
  Kel::Value const events = context.call("get", {{"path", "/log/events/event"}});
  auto const* members = events.as<Kel::ValueMap>();
  std::vector<std::vector<std::string>> rows{{"Time", "Event", "Severity", "Message"}};
  Kel::ValueList list;
  for (auto const& [name, event] : members != nullptr ? *members : Kel::ValueMap()) {
    list.push_back(event);
    rows.push_back({dateAndTime(number(at(event, {"time"}))), text(at(event, {"name"})),
                    severityWord(at(event, {"severity"})), text(at(event, {"message"}))});
  }
  if (context.json) {
    printJson(list);
  } else {
    print(table(rows));
  }
}

}  // namespace

void addEvents(CLI::App& program, Context const& context) {
  program.add_subcommand("events", "Show what has happened")->callback([&context] { showEvents(context); });
}

}  // namespace ZeroTouchCommand
