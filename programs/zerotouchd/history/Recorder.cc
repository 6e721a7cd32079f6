#include "programs/zerotouchd/history/Recorder.h"

#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "programs/zerotouchd/Events.h"

MachineRecorder::MachineRecorder(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& machine,
                                 Ring<History::State>& states, Ring<History::Timer>& timers)
    : NotifieeConst(machine), states_(states), timers_(timers) {
  states_.add({machine->stateTime(), stringValue(machine->currentState()), "the host has started"});
  noteTimer();
}

void MachineRecorder::onCurrentState() {
  auto const& machine = notifier();
  auto const state = stringValue(machine.currentState());
  auto const reason = shortened(machine.transitionReason());
  states_.add({Kel::now(), state, reason});
  bool const failed = machine.currentState() == ZeroTouch::ProvisioningState::stateRetry ||
                      machine.currentState() == ZeroTouch::ProvisioningState::stateRetryFetchConfig;
  say(Kel::printable(state + ": " + reason), failed ? warningPriority : infoPriority);
}

void MachineRecorder::onTimer() {
  endTimer();
  noteTimer();
}

void MachineRecorder::noteTimer() {
  auto const timer = notifier().timer();
  if (!notifier().timerActive()) {
    endTimer();
  } else if (timer && running_ == 0) {
    timer_ = {timer->name(), timer->initTime(), timer->timeout(), 0, false};
    running_ = timers_.add(timer_);
  }
}

void MachineRecorder::endTimer() {
  if (running_ == 0) return;
  timer_.ended = Kel::now();
  timer_.ranOut = timer_.ended >= timer_.started + timer_.timeout;
  timers_.replace(std::exchange(running_, 0), timer_);
}
