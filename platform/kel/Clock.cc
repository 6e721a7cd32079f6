#include "platform/kel/Clock.h"

#include <cmath>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Assert.h"

namespace Kel {

// The notifiee is not registered with the clock as an entity: the clock needs its schedule only.
Clock::NotifieeConst::NotifieeConst(Ptr<Clock const> clock)
    : NotifieeBase(nullptr, 1), clock_(std::move(clock)) {
  KEL_ASSERT(clock_ != nullptr, "clock");
}

Clock::NotifieeConst::~NotifieeConst() { timeMinIs(never); }

void Clock::NotifieeConst::timeMinIs(Seconds time) {
  KEL_ASSERT(!std::isnan(time), "!isnan(time)");
  if (timeMin_ != never) clock_->schedule_.erase({timeMin_, armed_, this});
  timeMin_ = time;
  if (time == never) return;
  armed_ = ++clock_->armings_;
  clock_->schedule_.insert({timeMin_, armed_, this});
}

void Clock::fire(Seconds time) const {
  std::uint64_t const armedBefore = armings_;
  // What a handler arms for now or earlier waits for the next pass; it is stepped over here.
  for (auto next = schedule_.begin(); next != schedule_.end() && std::get<Seconds>(*next) <= time;) {
    auto const [due, armed, notifiee] = *next;
    if (armed > armedBefore) {
      ++next;
      continue;
    }
    {
      Ptr<NotifieeConst> const hold(notifiee);
      notifiee->timeMinIs(never);
      if (notifiee->hasNotificationActive()) notifiee->onTime();
    }
    // The handler, or the end of the notifiee, may have armed and parked any: look up what comes after this
    // one.
    next = schedule_.lower_bound({due, armed, nullptr});
  }
}

Alarm::Alarm(std::function<void()> call, Ptr<Clock const> clock)
    : firing_(makePtr<Firing>(clock ? clock : activityManager()->config()->clock(), std::move(call))) {}

// When the alarm ends within the call, its notifiee lives on until the function returns.
Alarm::~Alarm() {
  cancel();
  firing_->hasNotificationActiveIs(false);
}

void Alarm::in(Seconds delay) {
  if (!isSet()) at(now() + delay);
}

}  // namespace Kel
