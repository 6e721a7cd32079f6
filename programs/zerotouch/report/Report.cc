// report: one web page that tells a run, to send to somebody.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Severity.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"
#include "programs/zerotouch/report/Html.h"
#include "programs/zerotouch/report/Timeline.h"

namespace ZeroTouchCommand {

namespace {

using Html::Cell;

// The time of day, with the date where the run began on another one.
Cell timeCell(Run const& run, Kel::Seconds time) {
  std::string const date = dateAndTime(time);
  bool const sameDay = date.substr(0, 10) == dateAndTime(run.start).substr(0, 10);
  auto const tenth = static_cast<unsigned>((time - std::floor(time)) * 10);
  return {(sameDay ? date.substr(11) : date) + "." + std::to_string(tenth), "time"};
}

struct Verdict {
  std::string tone, words;
};

Verdict verdict(Run const& run) {
  std::string const last = run.states.empty() ? "" : run.states.back().reason;
  std::string const state = memberText(at(run.status, {"sm"}), "currentState");
  if (state == "stateInit" || state.empty()) return {"calm", "Provisioning does not run"};
  if (state != "stateShutdown") return {"work", "Provisioning runs"};
  bool const installed =
      last.find("installed") != std::string::npos || last.find("succeeded") != std::string::npos;
  if (!installed) return {"bad", "The switch was not provisioned: " + last};
  return {"done", "The switch is provisioned: " + last};
}

std::string counted(std::size_t count, char const* one, char const* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string summary(Run const& run) {
  auto const [tone, words] = verdict(run);
  std::string facts;
  for (auto const& row : statusRows(run.status)) {
    std::string const label = row[0].substr(0, row[0].find(':'));
    facts += "<div><dt>" + Html::escaped(label) + "</dt><dd>" + Html::escaped(row[1]) + "</dd></div>\n";
  }
  auto const warnings = static_cast<std::size_t>(
      std::ranges::count_if(run.events, [](auto const& event) { return event.severity <= severityWarning; }));
  std::string const line =
      duration(run.now - run.start) + " since its start, " +
      counted(static_cast<std::size_t>(number(at(run.status, {"sm", "retryCount"}))), "retry", "retries") +
      ", " + counted(warnings, "warning", "warnings");
  return "<div class=\"verdict " + tone + "\"><strong>" + Html::escaped(words) +
         "</strong><span class=\"muted\">" + Html::escaped(line) + "</span></div>\n" +
         Html::section("now", "How it stands", "<dl>\n" + facts + "</dl>\n");
}

std::string states(Run const& run) {
  Html::Table table{"Every change of state, the oldest first",
                    {"Time", "State", "Lasted", "Why it was entered"},
                    {},
                    "No states."};
  for (auto const& state : run.states) {
    table.rows.push_back({timeCell(run, state.time),
                          {state.name, "name"},
                          {preciseDuration(state.end - state.time), "number"},
                          {state.reason}});
  }
  return Html::table(table);
}

std::string events(Run const& run) {
  Html::Table table{"As in the system log; zerotouch explain NAME tells more",
                    {"Time", "Event", "Severity", "Message"},
                    {},
                    "Nothing has happened."};
  for (auto const& event : run.events) {
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
  for (auto const& report : run.ports) {
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
  std::map<std::string, bool> names;
  for (auto const& report : run.ports) names[report.port] = true;
  std::string result;
  for (auto const& [name, there] : names) result += portHistory(run, name);
  return result.empty() ? "<p class=\"muted\">No port has reported anything.</p>\n" : result;
}

std::string changes(Run const& run) {
  Html::Table table{"Settings of the system, wishes of the operator and the reload",
                    {"Time", "Step", "What", "Where", "Value"},
                    {},
                    "Nothing was applied."};
  for (auto const& change : run.changes) {
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
  for (auto const& timer : run.timers) {
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

std::string header(Run const& run) {
  std::string about;
  auto const add = [&about](char const* what, std::string const& value) {
    if (!value.empty()) about += std::string(what) + value + " \xc2\xb7 ";
  };
  add("", run.model);
  add("serial number ", run.serial);
  add("", run.systemMac);
  return "<header><h1>Provisioning report</h1>\n<p class=\"muted\">" +
         Html::escaped(about + "as of " + dateAndTime(run.now)) + "</p></header>\n";
}

std::string pageOf(Run const& run) {
  return Html::page(
      "Provisioning report, " + dateAndTime(run.now),
      "<main>\n" + header(run) + summary(run) + Html::section("timeline", "Timeline", timeline(run)) +
          Html::section("states", "States", states(run)) + Html::section("events", "Events", events(run)) +
          Html::section("ports", "Ports", ports(run)) +
          Html::section("changes", "Applied and undone", changes(run)) +
          Html::section("timers", "Timers", timers(run)) + "</main>\n");
}

void writeFile(std::string const& path, std::string const& content) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "we"), std::fclose);
  bool const written = file && std::fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
                       std::fflush(file.get()) == 0;
  if (!written) throw Refused(path + ": " + std::strerror(errno));
}

void report(Context const& context, std::string const& path) {
  if (path.empty() && !context.json && onTerminal()) {
    throw WrongUsage("the report is a web page: give it a file with --output FILE");
  }
  Statebase::Client host(context.socketPath);
  Kel::Value const fetched = fetchRun(host);
  std::string const content = context.json ? jsonText(fetched) : pageOf(runOf(fetched));
  path.empty() ? print(content) : writeFile(path, content);
}

}  // namespace

void addReport(CLI::App& program, Context const& context) {
  auto* const verb =
      addVerb(program, "report", "Write a web page about the run",
              {"zerotouch report --output run.html", "zerotouch report --json | jq '.states[].reason'"});
  auto const path = std::make_shared<std::string>();
  verb->add_option("-o,--output", *path, "The file to write, else standard output")->type_name("FILE");
  verb->callback([&context, path] { report(context, *path); });
}

}  // namespace ZeroTouchCommand
