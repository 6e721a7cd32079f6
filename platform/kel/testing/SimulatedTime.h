// Simulated time for the length of a test.
#pragma once

#include "platform/kel/Loop.h"

namespace Kel::testing {

class SimulatedTime {
 public:
  explicit SimulatedTime(Seconds start = 1'700'000'000) { Loop::instance().simulate(start); }
  ~SimulatedTime() { Loop::instance().endSimulation(); }
  SimulatedTime(SimulatedTime const&) = delete;
  SimulatedTime& operator=(SimulatedTime const&) = delete;

  // Handles what is ready, without letting time pass.
  void settle() { advance(0); }
  void advance(Seconds duration) { Loop::instance().advance(duration); }
  bool advanceUntil(std::function<bool()> const& done, Seconds limit) {
    return Loop::instance().advanceUntil(done, limit);
  }
};

}  // namespace Kel::testing
