// history: the runs that the flash remembers.
#include "platform/statebase/Json.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/ReporterStatus.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/past/Memory.h"

namespace ZeroTouchCommand {

namespace {

using Kel::Value;

Kel::ValueList listOf(Value const& value) {
  auto const* const list = value.as<Kel::ValueList>();
  return list != nullptr ? *list : Kel::ValueList();
}

bool provisioned(Value const& run) { return isTrue(at(run, {"provisioned"})); }

std::string took(Value const& run) {
  double const started = number(at(run, {"started"}));
  double const ended = number(at(run, {"ended"}));
  return ended > started ? duration(ended - started) : "-";
}

std::string orDash(std::string const& text) { return text.empty() ? "-" : text; }

Rows failureRows(Value const& run) {
  Rows rows{{"Failed", "Attempt", "Port", "Boot file", "Why"}};
  for (auto const& failure : listOf(at(run, {"failures"}))) {
    rows.push_back({dateAndTime(number(at(failure, {"time"}))), memberText(failure, "attempt"),
                    orDash(memberText(failure, "port")), orDash(memberText(failure, "url")),
                    memberText(failure, "outcome")});
  }
  return rows;
}

// What is known of the last run, as a table of two columns.
Rows factsOf(Value const& run) {
  Rows rows;
  double const ended = number(at(run, {"ended"}));
  std::string const end = ended > 0 ? dateAndTime(ended) : "it had not ended when the flash was written";
  rows.push_back({"Last run:", provisioned(run) ? "has provisioned the switch, " + end
                                                : "has not provisioned the switch, " + end});
  rows.push_back({"Because:", memberText(run, "outcome")});
  std::string const url = memberText(run, "url");
  if (!url.empty()) rows.push_back({"Boot file:", url});
  std::string const port = memberText(run, "port");
  std::string const server = memberText(run, "server");
  if (!port.empty()) {
    rows.push_back(
        {"Port:", port + ", " + memberText(run, "family") + (server.empty() ? "" : " from " + server)});
  }
  std::string const signer = memberText(run, "signer");
  if (!signer.empty()) rows.push_back({"Signed by:", signer});
  rows.push_back({"Attempts:", memberText(run, "attempts") + ", in " + took(run)});
  return rows;
}

void printFailures(Value const& run) {
  Rows const failures = failureRows(run);
  if (failures.size() > 1) print("\n" + table(failures));
}

// The summary of the last run that the flash remembers, or null.
Value lastRun() {
  try {
    auto const runs = listOf(readMemory().runs);
    return runs.empty() ? Value() : runs.back();
  } catch (Refused const&) {
    return {};
  }
}

// A switch that is provisioned runs no host, and its reporter goes on.
void printWithoutHost(Context const& context, Value const& run) {
  Value const shown = withReporter(Kel::ValueMap{{"lastRun", run}}, context.socketPath);
  if (context.json) {
    printJson(shown);
  } else {
    Rows rows = factsOf(run);
    Value const& reporter = at(shown, {"reporter"});
    if (reporter != Value()) rows.push_back({"Reporter:", reporterInWords(reporter)});
    print(facts(rows));
    printFailures(run);
  }
  flushOutput();
}

}  // namespace

void showHistory(Context const& context) {
  Memory const memory = readMemory();
  if (context.json) {
    printJson(memory.runs);
    return;
  }
  Rows rows{{"Began", "Took", "Attempts", "Port", "Boot file", "Outcome"}};
  auto const runs = listOf(memory.runs);
  for (auto const& run : runs) {
    std::string const outcome = memberText(run, "outcome");
    rows.push_back({dateAndTime(number(at(run, {"started"}))), took(run), memberText(run, "attempts"),
                    orDash(memberText(run, "port")), orDash(memberText(run, "url")),
                    (provisioned(run) ? "provisioned: " : "not provisioned: ") + outcome});
  }
  if (runs.empty()) {
    print("No run is remembered.\n");
    return;
  }
  print(table(rows));
  printFailures(runs.back());
}

void showStatusOrLastRun(Context const& context) try {
  Statebase::Client host(context.socketPath);
  Value const status = withReporter(fetchStatus(host), context.socketPath);
  printStatus(context, status);
  bool const atRest = memberText(at(status, {"sm"}), "currentState") == "stateInit";
  Value const run = atRest && !context.json ? lastRun() : Value();
  if (run != Value()) print("\n" + facts(factsOf(run)));
} catch (Statebase::ConnectionError const&) {
  Value const run = lastRun();
  if (run != Value()) printWithoutHost(context, run);
  throw;
}

}  // namespace ZeroTouchCommand
