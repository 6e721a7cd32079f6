#include "platform/kel/Clock.h"

namespace Kel {

Clock::NotifieeConst::NotifieeConst(Ptr<Clock const> clock) : NotifieeBase(clock, 1), clock_(*clock) {}

Clock::NotifieeConst::~NotifieeConst() { timeMinIs(never); }

void Clock::NotifieeConst::timeMinIs(Seconds time) {
  if (timeMin_ != never) clock_.schedule_.erase({timeMin_, armed_, this});
  timeMin_ = time;
  if (time == never) return;
  armed_ = ++clock_.armings_;
  clock_.schedule_.insert({timeMin_, armed_, this});
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
    Ptr<NotifieeConst> const hold(notifiee);
    notifiee->timeMinIs(never);
    if (notifiee->hasNotificationActive()) notifiee->onTime();
    // The handler may have armed and parked others: start over from what comes after this one.
    next = schedule_.lower_bound({due, armed, nullptr});
  }
}

}  // namespace Kel
