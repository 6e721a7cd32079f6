// watch: the status, live. On a terminal it is drawn anew in place; elsewhere each state that is entered is a
// line.
#include <algorithm>

#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "platform/model/agent.h"
#include "platform/statebase/Json.h"
#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

// How often times on a terminal are brought up to date, and how long changes may come together before they
// are drawn.
constexpr Kel::Seconds refresh = 0.5;
constexpr Kel::Seconds together = 0.05;

// The states that were entered. Each stays an entry of its own, so that none is missed, however short it was.
constexpr char const* statesPath = "/log/history/state";

// A line such as "[#####.....]  50 %" while a download of a known size runs, else "".
std::string progressBar(Kel::Value const& machine, std::size_t width) {
  double const size = number(at(machine, {"contentLength"}));
  bool const runs = memberText(machine, "currentState") == "stateFetchConfig";
  if (!runs || size <= 0 || width < 20) return "";
  double const share = std::min(1.0, number(at(machine, {"bytesRead"})) / size);
  std::size_t const length = std::min<std::size_t>(width - 10, 60);
  auto const filled = static_cast<std::size_t>(share * static_cast<double>(length));
  return "[" + std::string(filled, '#') + std::string(length - filled, '.') + "]  " +
         std::to_string(static_cast<int>(share * 100)) + " %\n";
}

// Cuts lines to the width of the terminal. Longer ones would wrap, and the next drawing would start too low.
std::string cut(std::string const& lines, std::size_t width) {
  std::string result;
  for (std::size_t start = 0; start < lines.size();) {
    std::size_t const end = lines.find('\n', start);
    result.append(lines, start, std::min(end - start, width)).append("\x1b[K\n");
    start = end + 1;
  }
  return result;
}

// The status at the moment when the state of a history entry was entered; by now it may have been left again.
Kel::Value asOf(Kel::Value const& status, Kel::Value const& entry) {
  Kel::ValueMap result = *status.as<Kel::ValueMap>();
  for (auto& [name, value] : result) {
    auto const* const machine = value.as<Kel::ValueMap>();
    if (name != "sm" || machine == nullptr) continue;
    Kel::ValueMap changed = *machine;
    for (auto& [attribute, present] : changed) {
      if (attribute == "currentState") present = at(entry, {"state"});
      if (attribute == "stateTime") present = at(entry, {"time"});
      if (attribute == "transitionReason") present = at(entry, {"reason"});
    }
    value = std::move(changed);
  }
  return result;
}

class Screen {
 public:
  void draw(Kel::Value const& tree) {
    std::size_t const width = outputColumns();
    std::string const text = facts(statusRows(tree)) + progressBar(at(tree, {"sm"}), width);
    if (lines_ > 0) print("\x1b[" + std::to_string(lines_) + "A");
    print(cut(text, width) + "\x1b[J");
    lines_ = std::ranges::count(text, '\n');
  }

 private:
  std::ptrdiff_t lines_ = 0;
};

// Elsewhere, a line for each state: JSON for programs, and for people the time, the state and why it was
// entered.
void printState(Kel::Value const& status, Kel::Value const& entry, bool json) {
  if (json) {
    printJsonLine(asOf(status, entry));
    return;
  }
  print(dateAndTime(number(at(entry, {"time"}))) + "  " +
        Kel::printable(memberText(entry, "state") + ": " + memberText(entry, "reason")) + "\n");
}

// Throws WrongUsage when `name` is no state.
void checkState(std::string const& name) {
  ZeroTouch::ProvisioningState state{};
  if (name.empty() || Kel::Codec<ZeroTouch::ProvisioningState>::fromText(name, state).empty()) return;
  std::vector<std::string> names;
  for (unsigned bit = 1; bit <= static_cast<unsigned>(ZeroTouch::ProvisioningState::stateShutdown); bit *= 2)
    names.push_back(stringValue(static_cast<ZeroTouch::ProvisioningState>(bit)));
  std::string const meant = didYouMean(name, names);
  std::string known;
  for (auto const& one : names) known += (known.empty() ? " (the states are " : ", ") + one;
  throw WrongUsage("--until: there is no state '" + name + "'" + (meant.empty() ? known + ")" : meant));
}

}  // namespace

void watch(Context const& context, std::string const& until) {
  checkState(until);
  Statebase::Client host(context.socketPath);
  // The host tells of changes in the order of the paths, so that a state comes after all that changed with
  // it.
  Snapshot::Paths paths = statusPaths();
  paths.emplace_back(statesPath);
  Snapshot snapshot(host, paths, Snapshot::Reading::follow);
  bool const terminal = onTerminal() && !context.json;
  bool reached = false;
  auto const entered = [&](Kel::Value const& entry) {
    reached = reached || memberText(entry, "state") == until;
    if (!terminal) printState(statusOf(snapshot), entry, context.json);
  };
  auto const take = [&](Kel::Value const& change) {
    std::string const path = memberText(change, "path");
    Kel::Value const& value = at(change, {"value"});
    if (!Statebase::isWithin(path, statesPath)) {
      snapshot.apply(path, value);
    } else if (value != Kel::Value()) {  // an old entry is null once the host has dropped it
      entered(value);
    }
  };
  auto const* const past = snapshot[statesPath].as<Kel::ValueMap>();
  if (past == nullptr || past->empty()) throw Refused("no agent is loaded");
  entered(past->back().second);
  context.whileHostRuns([&] {
    for (Screen screen;;) {
      if (terminal) screen.draw(statusOf(snapshot));
      bool const isRead = flushOutput() == 0;
      if (!isRead || reached) return;
      auto changed = host.readNotification(terminal ? refresh : Kel::never);
      for (Kel::Seconds const drawAt = Kel::now() + together; changed && !reached;) {
        take(changed->params);
        Kel::Seconds const left = drawAt - Kel::now();
        changed = terminal && left > 0 ? host.readNotification(left) : std::nullopt;
      }
    }
  });
}

}  // namespace ZeroTouchCommand
