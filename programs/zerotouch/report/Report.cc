// report: one web page that tells a run, to send to somebody.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"
#include "programs/zerotouch/report/Html.h"
#include "programs/zerotouch/report/Report.h"

namespace ZeroTouchCommand {

namespace {

struct Verdict {
  std::string tone, words;
};

// How the run has gone. A run is a success when the shutdown follows the installation or the script.
Verdict verdict(Run const& run) {
  std::size_t const count = run.states.size();
  std::string const state = count > 0 ? run.states.back().name : "stateInit";
  if (state == "stateInit") return {"calm", "Provisioning does not run"};
  if (state != "stateShutdown") return {"work", "Provisioning runs"};
  std::string const why = ": " + run.states.back().reason;
  bool const finished = count > 1 && run.states[count - 2].name == "stateCopyConfigOrExecScript";
  if (!finished && isTrue(at(run.status, {"config", "cancelled"})))
    return {"calm", "The switch was not provisioned" + why};
  return finished ? Verdict{"done", "The switch is provisioned" + why}
                  : Verdict{"bad", "The switch was not provisioned" + why};
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
  // The host keeps only the last states of a long run, so the run may have begun before the first of them.
  double const startTime = number(at(run.status, {"sm", "startTime"}));
  std::string const line =
      duration(run.now - std::min(run.start, startTime)) + " since its start, " +
      counted(static_cast<std::size_t>(number(at(run.status, {"sm", "retryCount"}))), "retry", "retries") +
      ", " + counted(warnings, "warning", "warnings");
  return "<div class=\"verdict " + tone + "\"><strong>" + Html::escaped(words) +
         "</strong><span class=\"muted\">" + Html::escaped(line) + "</span></div>\n" +
         Html::section("now", "How it stands", "<dl>\n" + facts + "</dl>\n");
}

// The time zone of all times on the page, as in "UTC (+0000)".
std::string timeZone(Kel::Seconds time) {
  auto const whole = static_cast<std::time_t>(time);
  std::tm local{};
  char text[64] = "";
  if (localtime_r(&whole, &local) != nullptr) std::strftime(text, sizeof text, "%Z (%z)", &local);
  return text;
}

// Links to the sections.
std::string contents() {
  static constexpr std::pair<char const*, char const*> sections[] = {
      {"timeline", "Timeline"}, {"attempts", "Attempts"},          {"states", "States"}, {"events", "Events"},
      {"ports", "Ports"},       {"changes", "Applied and undone"}, {"timers", "Timers"}};
  std::string links;
  for (auto const& [id, name] : sections) links += std::string("<a href=\"#") + id + "\">" + name + "</a>\n";
  return "<nav aria-label=\"Sections\">\n" + links + "</nav>\n";
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
         Html::escaped(about + "as of " + dateAndTime(run.now) + ", all times in " + timeZone(run.now)) +
         "</p></header>\n" + contents();
}

std::string pageOf(Run const& run) {
  return Html::page("Provisioning report, " + dateAndTime(run.now),
                    "<main>\n" + header(run) + summary(run) +
                        Html::section("timeline", "Timeline", timeline(run)) + details(run) + "</main>\n");
}

void writeFile(std::string const& path, std::string const& content) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "we"), std::fclose);
  bool const written = file && std::fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
                       std::fflush(file.get()) == 0;
  if (!written) throw Refused(path + ": " + std::strerror(errno));
}

}  // namespace

void report(Context const& context, std::string const& path) {
  if (path.empty() && !context.json && onTerminal()) {
    throw WrongUsage("the report is a web page: give it a file with --output FILE");
  }
  Kel::Value const fetched = fetchRun(context);
  std::string const content = context.json ? jsonText(fetched) : pageOf(runOf(fetched));
  path.empty() ? print(content) : writeFile(path, content);
}

}  // namespace ZeroTouchCommand
