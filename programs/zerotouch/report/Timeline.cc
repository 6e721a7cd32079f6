// The timeline of a report.
#include <algorithm>
#include <map>
#include <optional>

#include "platform/kel/Format.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/report/Html.h"
#include "programs/zerotouch/report/Report.h"

namespace ZeroTouchCommand {

namespace {

// The picture is drawn for a wide screen, with the names of its rows beside them, and for a narrow one, with
// the names above.
struct Layout {
  char const* name;  // its class in the style sheet
  double width, left, right, labelHeight;
  int ticks;  // at most
};
constexpr Layout wide{"wide", 1100, 232, 1076, 0, 9};
constexpr Layout narrow{"narrow", 400, 10, 382, 16, 4};

constexpr double top = 30;
constexpr double usualRow = 30;
constexpr double barHeight = 13;
constexpr double leastBar = 3;
constexpr double eventsHeight = 48;
constexpr std::size_t mostPorts = 6;

constexpr char const* stateOrder[] = {"stateInit",
                                      "stateSetupInterfaces",
                                      "stateDhcpQuery",
                                      "stateStatelessDhcpQuery",
                                      "stateSetupSystemIdentity",
                                      "stateFetchConfig",
                                      "stateRetryFetchConfig",
                                      "stateCopyConfigOrExecScript",
                                      "stateRetry",
                                      "stateShutdown"};

std::string number(double value) { return Kel::format("%.1f", value); }

std::string title(std::string const& text) { return "<title>" + Html::escaped(text) + "</title>"; }

// The class of a state in the style sheet: calm, work, wait or done.
std::string toneOf(std::string const& state) {
  if (state == "stateInit") return "calm";
  if (state == "stateRetry" || state == "stateRetryFetchConfig") return "wait";
  return state == "stateShutdown" ? "done" : "work";
}

// Turns times into horizontal places on the picture.
class Scale {
 public:
  Scale(Run const& run, Layout const& layout)
      : layout_(layout), start_(run.start), length_(std::max(run.end - run.start, 0.1)) {}

  // Times outside the picture are moved to its edge.
  double x(Kel::Seconds time) const {
    double const x = layout_.left + (time - start_) / length_ * (layout_.right - layout_.left);
    return std::clamp(x, layout_.left, layout_.right);
  }
  bool shows(Kel::Seconds from, Kel::Seconds to) const { return to >= start_ && from <= start_ + length_; }

  struct Tick {
    double x;
    std::string label;
  };
  // Marks at round times since the start.
  std::vector<Tick> ticks() const {
    static constexpr double steps[] = {0.1,  0.2,   0.5,   1,     2,     5,      10,    20,
                                       30,   60,    120,   300,   600,   1200,   1800,  3600,
                                       7200, 14400, 21600, 43200, 86400, 172800, 604800};
    auto const* step = std::ranges::find_if(steps, [&](double s) { return s * layout_.ticks >= length_; });
    double const size = step != std::end(steps) ? *step : length_ / layout_.ticks;
    std::vector<Tick> result;
    for (int i = 0; i * size <= length_; ++i) result.push_back({x(start_ + i * size), label(i * size, size)});
    return result;
  }

 private:
  static std::string label(double seconds, double step) {
    if (step >= 86400) return Kel::format("+%d d", static_cast<unsigned>(seconds / 86400));
    if (step >= 1800) return Kel::format("+%g h", seconds / 3600);
    if (step >= 60) return Kel::format("+%d min", static_cast<unsigned>(seconds / 60));
    return Kel::format("+%g s", seconds);
  }

  Layout const& layout_;
  Kel::Seconds start_;
  double length_;
};

class Picture {
 public:
  Picture(Run const& run, Layout const& layout) : run_(run), layout_(layout), scale_(run, layout) {}

  std::string draw() {
    for (char const* const state : stateOrder) drawState(state);
    drawApplied();
    drawPorts();
    drawEvents();
    double const bottom = y_ + 10 - layout_.labelHeight;
    std::string const name = layout_.name;
    return "<svg class=\"chart " + name + "\" viewBox=\"0 0 " + number(layout_.width) + " " +
           number(bottom + 4) + "\" role=\"img\" aria-labelledby=\"title-" + name + " about-" + name +
           "\">\n<title id=\"title-" + name + "\">Timeline of the run</title>\n<desc id=\"about-" + name +
           "\">States, timers, applied settings, ports and events over " +
           Html::escaped(duration(run_.end - run_.start)) + ". The tables below hold the same.</desc>\n" +
           background(bottom) + marks_ + "</svg>\n";
  }

 private:
  std::string background(double bottom) const {
    std::string result;
    for (auto const& tick : scale_.ticks()) {
      result += Kel::format("<line class=\"grid\" x1=\"%.1f\" x2=\"%.1f\" y1=\"%.1f\" y2=\"%.1f\"/>", tick.x,
                            tick.x, top - 8, bottom) +
                Kel::format("<text class=\"soft\" x=\"%.1f\" y=\"14\" text-anchor=\"middle\">%s</text>\n",
                            tick.x, tick.label);
    }
    return result + attempts(bottom);
  }

  // Marks where each attempt but the first begins, and writes its number where there is room.
  std::string attempts(double bottom) const {
    std::string result;
    // The host keeps only the last states of a long run; the attempts before them are known from the count of
    // retries.
    auto const retries =
        static_cast<std::int64_t>(ZeroTouchCommand::number(at(run_.status, {"sm", "retryCount"})));
    auto attempt = 1 + std::max<std::int64_t>(
                           0, retries - std::ranges::count(run_.states, "stateRetry", &Run::State::name));
    double lastLabel = 0;
    for (auto const& state : run_.states) {
      if (state.name != "stateRetry" || state.end >= run_.end) continue;
      ++attempt;
      if (!scale_.shows(state.end, state.end)) continue;
      double const x = scale_.x(state.end);
      std::string const name = "attempt " + std::to_string(attempt);
      result += Kel::format("<line class=\"attempt\" x1=\"%.1f\" x2=\"%.1f\" y1=\"%.1f\" y2=\"%.1f\">", x, x,
                            top - 8, bottom) +
                title(name) + "</line>\n";
      if (x - lastLabel < 66) continue;
      lastLabel = x;
      result +=
          Kel::format("<text class=\"soft\" x=\"%.1f\" y=\"%.1f\">%s</text>\n", x + 4, bottom - 3, name);
    }
    return result;
  }

  // Adds a row with its name to the picture, below the rows that are there.
  void row(std::string const& label, std::string const& content, double height = usualRow) {
    double const name = layout_.labelHeight > 0 ? y_ - 4 : y_ + barHeight - 2.5;
    marks_ += Kel::format("<text class=\"label\" x=\"0\" y=\"%.1f\">", name) + Html::escaped(label) +
              "</text>\n" + content +
              Kel::format("<line class=\"grid\" x1=\"0\" x2=\"%.1f\" y1=\"%.1f\" y2=\"%.1f\"/>\n",
                          layout_.width, y_ + height - 6, y_ + height - 6);
    y_ += height + layout_.labelHeight;
  }

  std::string bar(char const* tone, Kel::Seconds from, Kel::Seconds to, double below, double height,
                  std::string const& about) const {
    if (!scale_.shows(from, to)) return "";
    double const x = scale_.x(from);
    double const width = std::max(scale_.x(to) - x, leastBar);
    return Kel::format("<rect class=\"%s\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" rx=\"1.5\">",
                       tone, x, y_ + below, width, height) +
           title(about) + "</rect>\n";
  }

  // The bars of a state, and below each of them those of the timers that were started in it.
  void drawState(std::string const& name) {
    std::string bars;
    for (auto const& state : run_.states) {
      if (state.name != name) continue;
      std::string const about = name + ", " + preciseDuration(state.end - state.time);
      bars += bar(toneOf(name).c_str(), state.time, state.end, 0, barHeight, about + ": " + state.reason);
      for (auto const& timer : run_.timers) {
        if (timer.started < state.time || timer.started >= state.end) continue;
        bars += bar(timer.ranOut ? "wait" : "stopped", timer.started, timer.ended, barHeight + 2.5, 4,
                    timer.name + " of " + preciseDuration(timer.timeout) +
                        (timer.runs     ? ", runs"
                         : timer.ranOut ? ", ran out"
                                        : ", was stopped"));
      }
    }
    if (!bars.empty()) row(name, bars);
  }

  // Bars from the first setting that is applied until the last one is undone.
  void drawApplied() {
    std::string bars;
    int applied = 0;
    Kel::Seconds since = 0;
    for (auto const& change : run_.changes) {
      if (!isApplied(change)) continue;
      if (applied == 0) since = change.time;
      applied = std::max(0, applied + (change.undone ? -1 : 1));
      if (applied == 0) bars += bar("held", since, change.time, 0, barHeight, "applied, then undone");
    }
    if (applied > 0) bars += bar("held", since, run_.end, 0, barHeight, "applied");
    if (!bars.empty()) row("applied to the system", bars);
  }

  // Only the ports with the most DHCP reports have a row; the tables hold all ports.
  void drawPorts() {
    std::map<std::string, std::size_t> reports;
    for (auto const& report : run_.ports) reports[report.port] += report.source == "link" ? 1 : 1000;
    std::vector<std::pair<std::size_t, std::string>> ports;
    for (auto const& [port, count] : reports) ports.emplace_back(count, port);
    std::ranges::stable_sort(ports, std::greater(), &decltype(ports)::value_type::first);
    if (ports.size() > mostPorts) ports.resize(mostPorts);
    std::ranges::sort(ports, {}, &decltype(ports)::value_type::second);
    for (auto const& [count, port] : ports) drawPort(port);
  }

  void drawPort(std::string const& port) {
    std::string bars;
    std::string answers;
    std::optional<Kel::Seconds> up;
    for (auto const& report : run_.ports) {
      if (report.port != port) continue;
      if (report.source == "link") {
        if (up && report.report != "up") bars += bar("done", *up, report.time, 3, barHeight - 6, "link up");
        up = report.report == "up" ? std::optional(up.value_or(report.time)) : std::nullopt;
      } else if (report.report != "gone") {
        answers += answer(report);
      }
    }
    if (up) bars += bar("done", *up, run_.end, 3, barHeight - 6, "link up");
    row(port, bars + answers);
  }

  std::string answer(Run::PortReport const& report) const {
    if (!scale_.shows(report.time, report.time)) return "";
    bool const failed = report.report == "FAIL" || report.report == "TIMEOUT";
    std::string const shape = failed ? "<circle class=\"hollow\"" : "<circle class=\"marker work\"";
    return shape +
           Kel::format(" cx=\"%.1f\" cy=\"%.1f\" r=\"5\">", scale_.x(report.time), y_ + barHeight / 2) +
           title(report.source + " " + report.report + (report.detail.empty() ? "" : ": " + report.detail)) +
           "</circle>\n";
  }

  // Marks of events that happened at almost the same time are placed below each other.
  void drawEvents() {
    std::string marks;
    double lastX = -100;
    double step = 0;
    for (auto const& event : run_.events) {
      // The first event is raised just before the run leaves its first state.
      if (!scale_.shows(event.time, event.time + 1)) continue;
      double const x = scale_.x(event.time);
      step = x - lastX < 9 ? (step + 1) : 0;
      if (step > 3) step = 0;
      lastX = x;
      double const y = y_ + 6 + step * 9;
      std::string const about = title(event.name + ": " + event.message);
      if (event.severity > severityWarning) {
        marks += Kel::format("<circle class=\"marker calm\" cx=\"%.1f\" cy=\"%.1f\" r=\"4\">", x, y) + about +
                 "</circle>\n";
      } else {
        marks += Kel::format("<path class=\"marker bad\" d=\"M%.1f %.1fl6 10h-12z\">", x, y - 6) + about +
                 "</path>\n";
      }
    }
    if (!marks.empty()) row("events", marks, eventsHeight);
  }

  Run const& run_;
  Layout const& layout_;
  Scale scale_;
  double y_ = top + layout_.labelHeight;
  std::string marks_;
};

std::string legendItem(std::string const& shape, std::string const& text) {
  return "<li><svg viewBox=\"0 0 14 14\" aria-hidden=\"true\">" + shape + "</svg>" + text + "</li>\n";
}

std::string legend() {
  auto const box = [](char const* tone) {
    return Kel::format("<rect class=\"%s\" y=\"2\" width=\"14\" height=\"10\" rx=\"1.5\"/>", tone);
  };
  auto const strip = [](char const* tone) {
    return Kel::format("<rect class=\"%s\" y=\"5\" width=\"14\" height=\"4\" rx=\"1\"/>", tone);
  };
  return "<ul class=\"legend\">\n" + legendItem(box("work"), "at work") +
         legendItem(box("wait"), "waits to try again") + legendItem(box("done"), "shuts down") +
         legendItem(strip("wait"), "timer that ran out") +
         legendItem(strip("stopped"), "timer that was stopped") +
         legendItem(box("held"), "settings applied") + legendItem(strip("done"), "link up") +
         legendItem("<circle class=\"work\" cx=\"7\" cy=\"7\" r=\"5\"/>", "DHCP answer") +
         legendItem("<circle class=\"hollow\" cx=\"7\" cy=\"7\" r=\"5\"/>", "DHCP failure") +
         legendItem("<circle class=\"calm\" cx=\"7\" cy=\"7\" r=\"4\"/>", "event") +
         legendItem("<path class=\"bad\" d=\"M7 2l6 10h-12z\"/>", "warning") + "</ul>\n";
}

}  // namespace

std::string timeline(Run const& run) {
  return "<div class=\"scroll\" role=\"region\" tabindex=\"0\" aria-label=\"Timeline\">\n" +
         Picture(run, wide).draw() + Picture(run, narrow).draw() + "</div>\n" + legend();
}

}  // namespace ZeroTouchCommand
