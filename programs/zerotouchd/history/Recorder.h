// Keeps a bounded history of what happens, for reports.
#pragma once

#include <optional>

#include "platform/model/agent.h"
#include "programs/zerotouchd/history/AttemptRecorder.h"
#include "programs/zerotouchd/history/ChangeRecorder.h"
#include "programs/zerotouchd/history/PortRecorder.h"

// Writes down the states and timers of the agent's state machine, and says each change of state.
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

class Recorder {
 public:
  explicit Recorder(ZeroTouch::MountedEntities const& entities)
      : ports_(entities, port_), changes_(entities, change_) {}

  // Records the states, timers and attempts of `machine` from now on; null ends that.
  void machineIs(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& machine) {
    attempts_.reset();
    machine_ = machine ? Kel::makePtr<MachineRecorder>(machine, state_, timer_) : nullptr;
    if (machine) attempts_.emplace(machine, attempt_);
  }

  Kel::Ptr<History::Log> const& entity() const { return log_; }

 private:
  using Log = History::Log;

  Kel::Ptr<Log> log_ = Kel::makePtr<Log>();
  Ring<History::State> state_{*log_, &Log::stateIs, &Log::stateDel, 500};
  Ring<History::Timer> timer_{*log_, &Log::timerIs, &Log::timerDel, 500};
  Ring<History::Port> port_{*log_, &Log::portIs, &Log::portDel, 1000};
  Ring<History::Change> change_{*log_, &Log::changeIs, &Log::changeDel, 1000};
  Ring<History::Attempt> attempt_{*log_, &Log::attemptIs, &Log::attemptDel, 200};
  PortRecorder ports_;
  ChangeRecorder changes_;
  Kel::Ptr<MachineRecorder> machine_;
  std::optional<AttemptRecorder> attempts_;
};
