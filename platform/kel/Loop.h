// The event loop: one thread, on sd-event. Children, descriptors and signals are sd-event sources; all clocks
// share one armed timer. In simulated time the loop drains what is ready and then jumps to the next firing
// time, so that an hour passes in microseconds and always in the same order.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <optional>

#include "platform/kel/Types.h"

namespace Kel {

class Loop {
 public:
  // The process's loop. Made on first use; blocks SIGCHLD, so that children can be watched.
  static Loop& instance();

  Loop();
  ~Loop();
  Loop(Loop const&) = delete;
  Loop& operator=(Loop const&) = delete;

  // Runs until stop() and returns its code; at once when stop() came first. It can be run again.
  int run();
  void stop(int code) { exitCode_ = code; }
  // Runs until `done` holds, looked at after each pass; false when `limit` has passed first.
  bool runUntil(std::function<bool()> const& done, Seconds limit);

  // Runs `handler` on the loop when the signal arrives. Call before a second thread is started.
  void onSignal(int signal, std::function<void()> handler);
  // Pets the service manager's watchdog, if there is one (WATCHDOG_USEC).
  void watchdogIs(bool on);
  // Pets it once, if it is on. For a handler that lasts long, since the loop does so between handlers only.
  void signOfLife() const;

  Seconds now() const;

  // Simulated time, for tests: it starts at `start` and stands still but for the calls below.
  void simulate(Seconds start);
  void endSimulation();
  bool simulated() const { return simulated_; }
  // Handles all that is ready now, then jumps from firing time to firing time until `duration` has passed.
  void advance(Seconds duration);
  // The same until `done` holds; false when nothing is left to wait for, or `limit` has passed first.
  bool advanceUntil(std::function<bool()> const& done, Seconds limit);

  sd_event* event() const { return event_; }
  // Its sources have a turn when no other is ready, and after so many passes in any case: a descriptor that
  // is always ready, as in a flood, does not keep them waiting for ever.
  sd_event* lateEvent() const { return lateEvent_; }
  static constexpr int passesWithoutLate = 16;
  // Descriptors and children tell the loop that they have a source, so that simulated time looks at the
  // kernel at all.
  void sourceAdded() { ++sources_; }
  void sourceRemoved() { --sources_; }

 private:
  void arm();
  void pass(Seconds limit);
  int runOne(std::uint64_t microseconds);
  bool drain();
  bool jump(Seconds limit);

  sd_event* event_ = nullptr;
  sd_event* lateEvent_ = nullptr;
  sd_event_source* lateReady_ = nullptr;
  sd_event_source* timer_ = nullptr;
  Seconds armedFor_ = never;
  Seconds wallAtStart_ = 0;
  Seconds monotonicAtStart_ = 0;
  Seconds simulatedNow_ = 0;
  std::optional<int> exitCode_;
  int sources_ = 0;
  int passes_ = 0;  // since the sources of lateEvent() had a turn for sure
  bool simulated_ = false;
};

}  // namespace Kel
