// watch: the status, live. On a terminal it is drawn anew in place; elsewhere each change of state is a line.
#include <algorithm>

#include "platform/model/agent.h"
#include "programs/zerotouch/Failure.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

constexpr Kel::Seconds refresh = 0.5;

// "[#####.....]  50 %" while a download of a known size runs, else empty.
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

// Lines longer than the terminal would wrap, and the next drawing would start too low.
std::string cut(std::string const& lines, std::size_t width) {
  std::string result;
  for (std::size_t start = 0; start < lines.size();) {
    std::size_t const end = lines.find('\n', start);
    result.append(lines, start, std::min(end - start, width)).append("\x1b[K\n");
    start = end + 1;
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

class Lines {
 public:
  void draw(Kel::Value const& tree, bool json) {
    std::string const state = memberText(at(tree, {"sm"}), "currentState");
    if (state == last_) return;
    last_ = state;
    if (json) {
      printJsonLine(tree);
    } else {
      print(dateAndTime(number(at(tree, {"time"}))) + "  " + printable(state) + "\n");
    }
  }

 private:
  std::string last_;
};

// Those that there are, and the mistake when it is none of them.
void checkState(std::string const& name) {
  ZeroTouch::ProvisioningState state{};
  if (name.empty() || Kel::Codec<ZeroTouch::ProvisioningState>::fromText(name, state).empty()) return;
  std::vector<std::string> names;
  for (unsigned bit = 1; bit <= static_cast<unsigned>(ZeroTouch::ProvisioningState::stateShutdown); bit *= 2)
    names.push_back(stringValue(static_cast<ZeroTouch::ProvisioningState>(bit)));
  throw WrongUsage("--until: there is no state '" + name + "'" + didYouMean(name, names));
}

}  // namespace

void watch(Context const& context, std::string const& until) {
  checkState(until);
  Statebase::Client host(context.socketPath);
  host.call("watch", {{"path", "/zerotouch/sm/currentState"}});
  bool const terminal = onTerminal() && !context.json;
  Screen screen;
  Lines lines;
  context.whileHostRuns([&] {
    while (true) {
      Kel::Value const tree = fetchStatus(host);
      terminal ? screen.draw(tree) : lines.draw(tree, context.json);
      // Somebody who stopped reading has seen enough.
      if (flushOutput() != 0) return;
      if (memberText(at(tree, {"sm"}), "currentState") == until) return;
      host.readNotification(refresh);
    }
  });
}

}  // namespace ZeroTouchCommand
