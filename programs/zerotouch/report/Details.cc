#include "programs/zerotouch/report/Report.h"

#include <cmath>
#include <set>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/report/Html.h"

namespace ZeroTouchCommand {

namespace {

template <typename T>
std::vector<T> newestFirst(std::vector<T> const& entries) {
  return {entries.rbegin(), entries.rend()};
}

using Html::Cell;

// The time of day to a tenth of a second, with the date when that is not the day on which the run began.
Cell timeCell(Run const& run, Kel::Seconds time) {
  std::string const date = dateAndTime(time);
  bool const sameDay = date.substr(0, 10) == dateAndTime(run.start).substr(0, 10);
  auto const tenth = static_cast<unsigned>((time - std::floor(time)) * 10);
  return {(sameDay ? date.substr(11) : date) + "." + std::to_string(tenth), "time"};
}

std::string attempts(Run const& run) {
  Html::Table table{"What each attempt has tried and what came of it, the newest first",
                    {"Began", "No", "Lasted", "Port", "Boot file", "Outcome"},
                    {},
                    "There was no attempt."};
  for (auto const& attempt : newestFirst(run.attempts)) {
    std::string const tone = attempt.goesOn ? "" : attempt.success ? "tone-good" : "tone-wrong";
    table.rows.push_back({timeCell(run, attempt.started),
                          {attempt.number, "number"},
                          {preciseDuration(attempt.ended - attempt.started), "number"},
                          {attempt.port.empty() ? "none" : attempt.port + ", " + attempt.family},
                          {attempt.url.empty() ? "none" : attempt.url},
                          {attempt.goesOn ? "goes on" : attempt.outcome, tone}});
  }
  return Html::table(table);
}

std::string states(Run const& run) {
  Html::Table table{"Every change of state, the newest first",
                    {"Time", "State", "Lasted", "Why it was entered"},
                    {},
                    "No states."};
  for (auto const& state : newestFirst(run.states)) {
    table.rows.push_back({timeCell(run, state.time),
                          {state.name, "name"},
                          {preciseDuration(state.end - state.time), "number"},
                          {state.reason}});
  }
  return Html::table(table);
}

std::string events(Run const& run) {
  Html::Table table{"As in the system log, the newest first; zerotouch explain NAME tells more",
                    {"Time", "Event", "Severity", "Message"},
                    {},
                    "Nothing has happened."};
  for (auto const& event : newestFirst(run.events)) {
    std::string const tone = event.severity > severityWarning    ? "tone-calm"
                             : event.severity == severityWarning ? "tone-wait"
                                                                 : "tone-bad";
    table.rows.push_back({timeCell(run, event.time),
                          {event.name, "name"},
                          {severityWord(event.severity), tone},
                          {event.message}});
  }
  return Html::table(table);
}

std::string portHistory(Run const& run, std::string const& port) {
  Html::Table table{"Links and DHCP on " + port, {"Time", "Source", "Report", "What it brought"}, {}, ""};
  for (auto const& report : newestFirst(run.ports)) {
    if (report.port != port) continue;
    bool const bad = report.report == "FAIL" || report.report == "TIMEOUT" || report.report == "down";
    bool const good = report.report == "up" || report.report.starts_with("BOUND");
    table.rows.push_back({timeCell(run, report.time),
                          {report.source, "short"},
                          {report.report, bad    ? "tone-wait"
                                          : good ? "tone-done"
                                                 : "tone-calm"},
                          {report.detail}});
  }
  return "<h3>" + Html::escaped(port) + "</h3>\n" + Html::table(table);
}

std::string ports(Run const& run) {
  std::set<std::string> names;
  for (auto const& report : run.ports) names.insert(report.port);
  std::string result;
  for (auto const& name : names) result += portHistory(run, name);
  return result.empty() ? "<p class=\"muted\">No port has reported anything.</p>\n" : result;
}

std::string changes(Run const& run) {
  Html::Table table{"Settings of the system, wishes of the operator and the reload",
                    {"Time", "Step", "What", "Where", "Value"},
                    {},
                    "Nothing was applied."};
  for (auto const& change : newestFirst(run.changes)) {
    table.rows.push_back({timeCell(run, change.time),
                          change.undone ? Cell{"undone", "tone-calm"} : Cell{"applied", "tone-done"},
                          {change.what, "short"},
                          {change.where, "short"},
                          {change.value}});
  }
  return Html::table(table);
}

std::string timers(Run const& run) {
  Html::Table table{"Each waiting step has one",
                    {"Started", "Timer", "Limit", "Lasted", "How it ended"},
                    {},
                    "No timer was started."};
  for (auto const& timer : newestFirst(run.timers)) {
    table.rows.push_back({timeCell(run, timer.started),
                          {timer.name, "name"},
                          {preciseDuration(timer.timeout), "number"},
                          {preciseDuration(timer.ended - timer.started), "number"},
                          timer.runs     ? Cell{"runs", "tone-calm"}
                          : timer.ranOut ? Cell{"ran out", "tone-wait"}
                                         : Cell{"stopped", "tone-calm"}});
  }
  return Html::table(table);
}

}  // namespace

std::string details(Run const& run) {
  return Html::section("attempts", "Attempts", attempts(run)) +
         Html::section("states", "States", states(run)) + Html::section("events", "Events", events(run)) +
         Html::section("ports", "Ports", ports(run)) +
         Html::section("changes", "Applied and undone", changes(run)) +
         Html::section("timers", "Timers", timers(run));
}

}  // namespace ZeroTouchCommand
