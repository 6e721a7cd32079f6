#include "platform/kel/Log.h"

#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "platform/kel/Clock.h"

namespace Kel {

char const* const NoActionRequired = "No action is required.";
char const* const CallSupportIfPersists =
    "If the problem persists, contact your support representative. Otherwise, no action is required.";

namespace {

struct Registry {
  std::vector<LogHandle const*> handles;
  std::map<int, LogSink> sinks;
  int lastSink = 0;
};

// Never destroyed: handles of other libraries leave it at exit.
Registry& registry() {
  static auto* const instance = new Registry;
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
  registry().handles.push_back(this);
}

LogHandle::~LogHandle() { std::erase(registry().handles, this); }

bool LogHandle::okToLog() const {
  if ((flags_ & 1) != 0) return false;
  return interval_ <= 0 || windowOver(now()) || inWindow_ < burst_;
}

// A start that lies ahead comes from a simulated time that has ended since.
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
  for (auto const& [number, sink] : std::map<int, LogSink>(registry().sinks)) {
    if (registry().sinks.contains(number)) sink(event);
  }
}

std::vector<LogHandle const*> const& logHandles() { return registry().handles; }

int logSinkIs(LogSink sink) {
  registry().sinks[++registry().lastSink] = std::move(sink);
  return registry().lastSink;
}

void logSinkDel(int number) { registry().sinks.erase(number); }

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

}  // namespace Kel
