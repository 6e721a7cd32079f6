// The real loop, for what simulated time cannot show. Bounded, so that a missing event fails the test at
// once.
#pragma once

#include <functional>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Loop.h"

// Runs the loop until `done` holds after some event; false when it has not within ten seconds.
class RealLoop : public Kel::Clock::NotifieeConst {
 public:
  RealLoop() : NotifieeConst(Kel::activityManager()->config()->clock()) {}

  static bool runUntil(std::function<bool()> done) {
    auto const bound = Kel::makePtr<RealLoop>();
    bound->done_ = std::move(done);
    bound->end_ = Kel::now() + 10;
    bound->onTime();
    return Kel::Loop::instance().run() == 0;
  }

 private:
  void onTime() override {
    constexpr Kel::Seconds pollInterval = 0.001;
    if (done_() || Kel::now() > end_) {
      Kel::Loop::instance().stop(done_() ? 0 : 1);
    } else {
      timeMinIs(Kel::now() + pollInterval);
    }
  }

  std::function<bool()> done_;
  Kel::Seconds end_ = 0;
};
