// Writes down the states and timers of the agent's state machine.
#pragma once

#include "platform/model/agent.h"
#include "programs/zerotouchd/history/Ring.h"

class MachineRecorder : public ZeroTouch::ZeroTouchSmModel::NotifieeConst {
 public:
  MachineRecorder(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& machine, Ring<History::State>& states,
                  Ring<History::Timer>& timers);

  void onCurrentState() override;
  void onTimer() override;
  void onTimerActive() override { noteTimer(); }

 private:
  void noteTimer();
  void endTimer();

  Ring<History::State>& states_;
  Ring<History::Timer>& timers_;
  std::uint64_t running_ = 0;  // the entry of the timer that runs; 0 for none
  History::Timer timer_;
};
