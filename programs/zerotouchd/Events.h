// Where events go, and what the host itself says.
#pragma once

#include <string>

#include "platform/kel/Log.h"
#include "platform/model/log.h"

// What the host says itself, on its standard error, line by line. The journal learns the priority of each
// line, on the scale of syslog.
inline constexpr unsigned errorPriority = 3;
inline constexpr unsigned warningPriority = 4;
inline constexpr unsigned infoPriority = 6;
void say(std::string const& text, unsigned priority = infoPriority);

// Whether the service manager keeps our standard error in its journal.
bool isInJournal();

// A log sink for hosts without a service manager that keeps their standard error.
void printEvent(Kel::LogEvent const& event);

// Keeps the last events in the state tree, for people to read back.
class EventRing {
 public:
  static constexpr std::size_t capacity = 1000;

  EventRing();
  ~EventRing();
  EventRing(EventRing const&) = delete;
  EventRing& operator=(EventRing const&) = delete;

  Kel::Ptr<Log::Ring> const& entity() const { return ring_; }

 private:
  void add(Kel::LogEvent const& event);

  Kel::Ptr<Log::Ring> ring_ = Kel::makePtr<Log::Ring>();
  std::uint64_t last_ = 0;
  int sink_;
};
