// Log handles: the structured events that operators see.
//
// Every event raised goes to all sinks: the system log, a ring in the state tree, a test's record.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/kel/Format.h"
#include "platform/kel/Types.h"

namespace Kel {

// Standard texts for an event's recommended action.
extern char const* const NoActionRequired;
extern char const* const CallSupportIfPersists;

// One event as raised.
struct LogEvent {
  Seconds time = 0;
  String name;
  std::uint32_t severity = 0;  // syslog's scale: 4 warning, 6 informational
  String message;
  String explanation;
  String action;
};

// The handle of one kind of event, with static storage duration; raised by calling log().
class LogHandle {
 public:
  // `format` as for Kel::format. Repeats are limited to `burst` within `interval` seconds; an interval of 0
  // means no limit. Of `flags`, 1 silences the event.
  LogHandle(char const* name, std::uint32_t severity, char const* format, char const* explanation,
            char const* recommendedAction, Seconds interval, double burst, std::uint32_t flags);
  ~LogHandle();
  LogHandle(LogHandle const&) = delete;
  LogHandle& operator=(LogHandle const&) = delete;

  char const* name() const { return name_; }
  std::uint32_t severity() const { return severity_; }
  char const* format() const { return format_; }
  char const* explanation() const { return explanation_; }
  char const* recommendedAction() const { return recommendedAction_; }

  // Whether the event would be emitted now.
  bool okToLog() const;

  template <typename... Args>
  void log(Args const&... args) {
    if (okToLog()) emit(Kel::format(format_, args...));
  }

 private:
  void emit(String message);
  bool windowOver(Seconds time) const;

  char const* name_;
  std::uint32_t severity_;
  char const* format_;
  char const* explanation_;
  char const* recommendedAction_;
  Seconds interval_;
  double burst_;
  std::uint32_t flags_;
  Seconds windowStart_ = -never;
  double inWindow_ = 0;
};

// All handles that exist now, in the order of their definition.
std::vector<LogHandle const*> const& logHandles();

using LogSink = std::function<void(LogEvent const&)>;
// Adds a sink and returns a number to remove it by.
int logSinkIs(LogSink sink);
void logSinkDel(int number);

// A sink for the system log: the journal with the event's name, explanation and action as fields, else
// syslog.
void logToSystem(LogEvent const& event);

}  // namespace Kel
