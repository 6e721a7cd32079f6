// watch: the status, live. On a terminal it is drawn anew in place; elsewhere each state that is entered is a
// line.
#include <algorithm>

#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "programs/zerotouch/Follow.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/States.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

// How often times on a terminal are brought up to date, and how long changes may come together before they
// are drawn.
constexpr Kel::Seconds refresh = 0.5;
constexpr Kel::Seconds together = 0.05;

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
        Kel::printable(stateInWords(memberText(entry, "state")) + ": " + memberText(entry, "reason")) + "\n");
}

}  // namespace

void watch(Context const& context, std::string const& until) {
  if (!until.empty()) checkState("--until", until);
  Statebase::Client host(context.socketPath);
  bool const terminal = onTerminal() && !context.json;
  bool reached = false;
  StateFollower follower(host, [&](Kel::Value const& entry) {
    reached = reached || memberText(entry, "state") == until;
    if (!terminal) printState(follower.status(), entry, context.json);
  });
  follower.begin();
  context.whileHostRuns([&] {
    for (Screen screen;;) {
      if (terminal) screen.draw(follower.status());
      bool const isRead = flushOutput() == 0;
      if (!isRead || reached) return;
      bool changed = follower.takeChange(terminal ? refresh : Kel::never);
      for (Kel::Seconds const drawAt = Kel::now() + together; changed && !reached;) {
        Kel::Seconds const left = drawAt - Kel::now();
        changed = terminal && left > 0 && follower.takeChange(left);
      }
    }
  });
}

}  // namespace ZeroTouchCommand
