// Calls a function once its time has come, on a later pass of the loop: once, however often it was asked for.
#pragma once

#include <functional>
#include <utility>

#include "platform/kel/ActivityManager.h"

namespace Linux {

class Timer {
 public:
  explicit Timer(std::function<void()> action) : clock_(Kel::makePtr<Firing>(std::move(action))) {}

  // Has no effect while it is set already.
  void in(Kel::Seconds delay) {
    if (clock_->timeMin() == Kel::never) clock_->timeMinIs(Kel::now() + delay);
  }
  void cancel() { clock_->timeMinIs(Kel::never); }

 private:
  class Firing : public Kel::Clock::NotifieeConst {
   public:
    explicit Firing(std::function<void()> action)
        : NotifieeConst(Kel::activityManager()->config()->clock()), action_(std::move(action)) {}
    void onTime() override { action_(); }

   private:
    std::function<void()> action_;
  };

  Kel::Ptr<Firing> clock_;
};

}  // namespace Linux
