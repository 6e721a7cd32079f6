// The clock, whose notifiees are told when their time has come, and the alarm, which calls a function then.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <tuple>

#include "platform/kel/Entity.h"
#include "platform/kel/Types.h"

namespace Kel {

// Wall-clock time at the start of the process plus the monotonic time since, in seconds since 1970: it never
// steps back when somebody sets the clock. Simulated in tests.
Seconds now();

class Clock : public Entity {
 public:
  // A notifiee has one firing time. It fires once, on a later pass of the loop, never inside the call that
  // set the time, and is parked at Kel::never before its handler runs. Ties fire in the order in which they
  // were armed.
  class NotifieeConst : public NotifieeBase {
   public:
    explicit NotifieeConst(Ptr<Clock const> clock);
    ~NotifieeConst() override;

    Seconds timeMin() const { return timeMin_; }
    // A time that has passed already fires on the next pass of the loop.
    void timeMinIs(Seconds time);

    virtual void onTime() {}

   private:
    friend class Clock;

    Ptr<Clock const> clock_;
    Seconds timeMin_ = never;
    std::uint64_t armed_ = 0;
  };

  Seconds time() const { return now(); }

  // Used by the loop: nextTime() is the earliest firing time; fire() fires all that is due at `time` and was
  // armed before the call.
  Seconds nextTime() const { return schedule_.empty() ? never : std::get<Seconds>(*schedule_.begin()); }
  void fire(Seconds time) const;

 private:
  using Entry = std::tuple<Seconds, std::uint64_t, NotifieeConst*>;

  mutable std::set<Entry> schedule_;
  mutable std::uint64_t armings_ = 0;
};

// Calls a function at a time: once, on a later pass of the loop, never inside the call that set the time. It
// is a member of the object whose function it calls; its end cancels it. The function may set the alarm
// again, and may destroy it. What is set for the same time fires in the order in which it was set.
class Alarm {
 public:
  // `clock` is that of the process unless given.
  explicit Alarm(std::function<void()> call, Ptr<Clock const> clock = nullptr);
  ~Alarm();
  Alarm(Alarm const&) = delete;
  Alarm& operator=(Alarm const&) = delete;

  // Sets it for a point in time, whatever it was set for before; for the next pass when that has passed
  // already. Kel::never cancels.
  void at(Seconds time) { firing_->timeMinIs(time); }
  // Sets it for `delay` seconds from now, unless it is set already: asked for often, it fires once.
  void in(Seconds delay);
  void cancel() { at(never); }

  bool isSet() const { return time() != never; }
  // What it is set for; Kel::never when it is not.
  Seconds time() const { return firing_->timeMin(); }

 private:
  class Firing : public Clock::NotifieeConst {
   public:
    Firing(Ptr<Clock const> clock, std::function<void()> call)
        : NotifieeConst(std::move(clock)), call_(std::move(call)) {}
    void onTime() override { call_(); }

   private:
    std::function<void()> call_;
  };

  Ptr<Firing> firing_;
};

}  // namespace Kel
