// explain: what an event means and what to do about it. Needs no host: the texts are built in.
#include <algorithm>
#include <memory>

#include "platform/kel/Log.h"
#include "programs/zerotouch/Nearest.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Severity.h"
#include "programs/zerotouch/Table.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

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

}  // namespace

void addExplain(CLI::App& program, Context const& context) {
  auto* const verb = addVerb(program, "explain", "Explain an event, and what to do about it",
                             {"zerotouch explain", "zerotouch explain ZTP_CONFIG_DOWNLOAD_FAIL"});
  auto const name = std::make_shared<std::string>();
  verb->add_option("event", *name, "Its name in any case; without it, all are listed")->type_name("");
  verb->callback([&context, name] { explain(context, *name); });
}

}  // namespace ZeroTouchCommand
