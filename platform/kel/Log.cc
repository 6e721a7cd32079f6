// What the process says: events, trace lines, failed assertions.
#include "platform/kel/Log.h"

#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

#include "platform/kel/Assert.h"
#include "platform/kel/Clock.h"
#include "platform/kel/Trace.h"

namespace Kel {

char const* const NoActionRequired = "No action is required.";
char const* const CallSupportIfPersists =
    "If the problem persists, contact your support representative. Otherwise, no action is required.";

namespace {

struct Events {
  std::vector<LogHandle const*> handles;
  std::map<int, LogSink> sinks;
  int lastSink = 0;
};

// It is never destroyed, because handles of other libraries remove themselves from it at exit.
Events& events() {
  static auto* const instance = new Events;
  return *instance;
}

}  // namespace

LogHandle::LogHandle(char const* name, std::uint32_t severity, char const* format, char const* explanation,
                     char const* recommendedAction, Seconds interval, double burst, std::uint32_t flags)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      interval_(interval),
      burst_(burst),
      flags_(flags) {
  events().handles.push_back(this);
}

LogHandle::~LogHandle() { std::erase(events().handles, this); }

bool LogHandle::okToLog() const {
  if ((flags_ & 1) != 0) return false;
  return interval_ <= 0 || windowOver(now()) || inWindow_ < burst_;
}

// The start can lie ahead of `time` once a simulated time has ended.
bool LogHandle::windowOver(Seconds time) const {
  return time - windowStart_ >= interval_ || time < windowStart_;
}

void LogHandle::emit(String message) {
  Seconds const time = now();
  if (windowOver(time)) {
    windowStart_ = time;
    inWindow_ = 0;
  }
  ++inWindow_;
  LogEvent const event{time, name_, severity_, std::move(message), explanation_, recommendedAction_};
  for (auto const& [number, sink] : std::map<int, LogSink>(events().sinks)) {
    if (events().sinks.contains(number)) sink(event);
  }
}

std::vector<LogHandle const*> const& logHandles() { return events().handles; }

int logSinkIs(LogSink sink) {
  events().sinks[++events().lastSink] = std::move(sink);
  return events().lastSink;
}

void logSinkDel(int number) { events().sinks.erase(number); }

void logToSystem(LogEvent const& event) {
  // sd_journal_send succeeds silently where there is no journal.
  if (access("/run/systemd/journal/socket", W_OK) == 0) {
    sd_journal_send("MESSAGE=%s: %s", event.name.c_str(), event.message.c_str(), "PRIORITY=%u",
                    event.severity, "EVENT_NAME=%s", event.name.c_str(), "EVENT_SEVERITY=%u", event.severity,
                    "EVENT_EXPLANATION=%s", event.explanation.c_str(), "EVENT_ACTION=%s",
                    event.action.c_str(), nullptr);
  } else {
    syslog(static_cast<int>(event.severity), "%s: %s", event.name.c_str(), event.message.c_str());
  }
}

namespace {

struct Facilities {
  std::vector<TraceFacility*> facilities;
  std::map<String, int> levels;
  TraceSink sink;

  int level(String const& name) const {
    auto found = levels.find(name);
    if (found == levels.end()) found = levels.find("*");
    return found == levels.end() ? -1 : found->second;
  }
};

// It is never destroyed, because facilities of other libraries remove themselves from it at exit.
Facilities& traces() {
  static auto* const instance = new Facilities;
  return *instance;
}

}  // namespace

TraceFacility::TraceFacility(char const* name) : name_(name), level_(traces().level(name)) {
  traces().facilities.push_back(this);
}

TraceFacility::~TraceFacility() { std::erase(traces().facilities, this); }

void TraceFacility::write(int level, String const& text) const {
  String const line = printable(text);
  if (traces().sink) {
    traces().sink(*this, level, line);
  } else {
    std::fprintf(stderr, "%.6f %s %d %s\n", now(), name_, level, line.c_str());
  }
}

String traceIs(String const& setting) {
  std::map<String, int> levels;
  std::istringstream parts(setting);
  for (String part; std::getline(parts, part, ',');) {
    std::size_t const equals = part.find('=');
    bool const oneDigit = equals != String::npos && equals + 2 == part.size() && part[equals + 1] >= '0' &&
                          part[equals + 1] <= '9';
    if (!oneDigit || equals == 0)
      return "'" + part + "' is no trace setting (expected FACILITY=LEVEL, LEVEL 0 to 9)";
    levels[part.substr(0, equals)] = part[equals + 1] - '0';
  }
  traces().levels = std::move(levels);
  for (TraceFacility* facility : traces().facilities) facility->levelIs(traces().level(facility->name()));
  return {};
}

void traceSinkIs(TraceSink sink) { traces().sink = std::move(sink); }

namespace {
int assertionRecord = -1;
}

void assertionRecordIs(int fd) { assertionRecord = fd; }

void assertionFailed(char const* file, int line, char const* text) {
  if (assertionRecord >= 0) dprintf(assertionRecord, "%s:%d: Assertion failed: %s\n", file, line, text);
  std::fprintf(stderr, "%s:%d: Assertion failed: %s\n", file, line, text);
  syslog(LOG_CRIT, "%s:%d: Assertion failed: %s", file, line, text);
  std::abort();
}

}  // namespace Kel
