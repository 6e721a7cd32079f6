// Starting, cancelling and driving the one provisioning timer.
#include <cmath>
#include <cstdlib>

#include "platform/kel/Assert.h"
#include "zerotouch/sm/ProvisioningTimers.h"
#include "zerotouch/sm/Reactors.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

Kel::Seconds overridden(char const* variable, Kel::Seconds builtIn) {
  char const* const value = std::getenv(variable);
  if (value == nullptr) return builtIn;
  Kel::Seconds const parsed = std::strtod(value, nullptr);
  return std::isnan(parsed) ? 0 : parsed;
}

}  // namespace

Kel::Ptr<TimerBase> ZeroTouchSm::timer() const {
  return Kel::Ptr<TimerBase>(static_cast<TimerBase*>(ZeroTouchSmModel::timer().get()));
}

template <typename Timer>
void ZeroTouchSm::startTimer(Kel::Seconds interval, Kel::Seconds timeout) {
  TimerSettings const& settings = Timer::settings;
  Kel::Seconds const ends = overridden(settings.timeoutVariable, timeout);
  Kel::Seconds ticks = overridden(settings.intervalVariable, interval);
  if (std::isinf(ticks)) ticks = ends;  // It never ticks, but it ends.
  auto const timer = Kel::makePtr<Timer>(settings.name, this, ticks, ends, Kel::now());
  timer->defaultIntervalIs(interval);
  timer->defaultTimeoutIs(timeout);
  timerIs(timer);
  doStartTimer();
}

void ZeroTouchSm::doStartTimer() {
  auto const current = timer();
  SM_TRACE(9, " - Started timer " << current->name() << " interval:" << current->interval()
                                  << " timeout:" << current->timeout());
  clock_->timeMinIs(current->initTime() + current->interval());
  timerActiveIs(true);
}

void ZeroTouchSm::doCancelTimer() {
  if (auto const current = timer()) SM_TRACE(8, " - " << current->name());
  timerActiveIs(false);
  clock_->timeMinIs(Kel::never);
}

void ZeroTouchSm::handleTimer() {
  auto const current = timer();
  if (!current) return;
  Kel::Seconds const now = Kel::now();
  KEL_ASSERT(now >= current->initTime(), "Kel::now() >= timer()->initTime()");
  // Added, not subtracted: the same rounding as in doStartTimer, or a one-shot timer could miss its own
  // timeout.
  if (now >= current->initTime() + current->timeout()) {
    SM_TRACE(9, " - Stopping timer " << current->name());
    timerActiveIs(false);
    clock_->timeMinIs(Kel::never);
    current->handleTimerStop();
  } else {
    SM_TRACE(9, " - Timer tick " << current->name());
    current->handleTimerTick();
    // Unless the tick has asked for a change of state, which cancels the timer, or started another one.
    if (timer() == current && timerActive()) clock_->timeMinIs(now + current->interval());
  }
}

void ZeroTouchSm::doStartInterfacesSetupTimer() { startTimer<InterfacesSetupTimer>(); }
void ZeroTouchSm::doStartDhclientQueryTimer() { startTimer<DhclientQueryTimer>(); }
void ZeroTouchSm::doStartStatelessDhclientQueryTimer() { startTimer<StatelessDhclientQueryTimer>(); }
void ZeroTouchSm::doStartSystemIdentitySetupTimer() { startTimer<SystemIdentitySetupTimer>(); }
void ZeroTouchSm::doStartConfigFetchTimer() { startTimer<ConfigFetchTimer>(); }

void ZeroTouchSm::doStartConfigFetchRetryTimer(std::uint16_t tryCount) {
  startTimer<ConfigFetchRetryTimer>(ConfigFetchRetryTimer::settings.interval * tryCount,
                                    ConfigFetchRetryTimer::settings.timeout * tryCount);
}

void ZeroTouchSm::doStartScriptExecTimer() {
  Kel::Seconds const timeout = config()->scriptExecTimeout();
  startTimer<ScriptExecTimer>(timeout, timeout);
}

void ZeroTouchSm::doStartRetryWaitTimer() { startTimer<RetryWaitTimer>(); }
void ZeroTouchSm::doStartLeaseReleaseTimer() { startTimer<LeaseReleaseTimer>(); }
void ZeroTouchSm::doStartStartupFileSyncWaitTimer() { startTimer<StartupFileSyncWaitTimer>(); }
}  // namespace ZeroTouch
