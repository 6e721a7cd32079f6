// The timer of a waiting step: ticks every `interval`, stops once `timeout` has passed since `initTime`.
#pragma once

#include "platform/model/agent.h"

namespace ZeroTouch {

class ZeroTouchSm;

// The state machine holds at most one, the one that runs; its single timer clock drives it. The first firing
// comes after one interval: a timer whose interval equals its timeout never ticks. What a tick and a stop do
// is the subclass's (ProvisioningTimers.h).
class TimerBase : public TimerBaseModel {
 public:
  TimerBase(Kel::Name name, ZeroTouchSm* ztSm, Kel::Seconds interval, Kel::Seconds timeout,
            Kel::Seconds initTime)
      : TimerBaseModel(std::move(name), interval, timeout, initTime), ztSm_(ztSm) {}

  virtual void handleTimerTick() {}
  virtual void handleTimerStop() {}

 protected:
  ZeroTouchSm* ztSm() const { return ztSm_; }

 private:
  ZeroTouchSm* ztSm_;  // the owner
};

}  // namespace ZeroTouch
