// A clock notifiee that calls a function.
#pragma once

#include <functional>

#include "platform/kel/ActivityManager.h"

namespace Statebase {

// Set with timeMinIs(); whoever holds it outlives the call.
class Alarm : public Kel::Clock::NotifieeConst {
 public:
  explicit Alarm(std::function<void()> onTime)
      : NotifieeConst(Kel::activityManager()->config()->clock()), onTime_(std::move(onTime)) {}

  void onTime() override { onTime_(); }

 private:
  std::function<void()> onTime_;
};

}  // namespace Statebase
