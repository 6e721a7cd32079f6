// Starting, cancelling and driving the one provisioning timer, and what each of the ten does when it ticks
// and when it stops.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/sm/Pacing.h"
#include "zerotouch/sm/ProvisioningTimers.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

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
void ZeroTouchSm::startTimer(Pace const& pace, Kel::Seconds interval, Kel::Seconds timeout) {
  TimerSettings const& settings = Timer::settings;
  Kel::Seconds ends = overridden(settings.timeoutVariable, timeout);
  Kel::Seconds ticks = overridden(settings.intervalVariable, interval);
  if (std::isinf(ticks)) ticks = ends;  // It never ticks, but it ends.
  Wait const wait = pace ? pace(std::max(ticks, ends)) : Wait{};
  if (!wait.purpose.empty()) ticks = ends = wait.time;
  auto const timer = Kel::makePtr<Timer>(settings.name, this, ticks, ends, Kel::now());
  timer->purposeIs(wait.purpose);
  timer->defaultIntervalIs(interval);
  timer->defaultTimeoutIs(timeout);
  timerIs(timer);
  doStartTimer();
}

void ZeroTouchSm::doStartTimer() {
  auto const current = timer();
  SM_TRACE(9, " - Started timer " << current->name() << " interval:" << current->interval()
                                  << " timeout:" << current->timeout());
  timerAlarm_.at(current->initTime() + current->interval());
  timerActiveIs(true);
}

void ZeroTouchSm::doCancelTimer() {
  if (auto const current = timer()) SM_TRACE(8, " - " << current->name());
  timerActiveIs(false);
  timerAlarm_.at(Kel::never);
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
    timerAlarm_.at(Kel::never);
    current->handleTimerStop();
  } else {
    SM_TRACE(9, " - Timer tick " << current->name());
    current->handleTimerTick();
    // Unless the tick has asked for a change of state, which cancels the timer, or started another one.
    if (timer() == current && timerActive()) timerAlarm_.at(now + current->interval());
  }
}

void ZeroTouchSm::doStartInterfacesSetupTimer() {
  startTimer<InterfacesSetupTimer>([this](Kel::Seconds usual) { return pacing_->beforeFirstQuery(usual); });
}

void ZeroTouchSm::doStartDhclientQueryTimer() {
  startTimer<DhclientQueryTimer>(
      [this](Kel::Seconds usual) { return pacing_->forAnswers(usual, retryCount()); });
}

void ZeroTouchSm::waitForOffers(Kel::Seconds longest) {
  Kel::Seconds const left = timer()->initTime() + timer()->timeout() - Kel::now();
  Kel::Seconds const time = std::max(std::min(longest, left), 0.0);
  startTimer<DhclientQueryTimer>([time](Kel::Seconds) {
    return Wait{time, Kel::format("a better offer, which may come for %g s", time)};
  });
}

void ZeroTouchSm::doStartStatelessDhclientQueryTimer() { startTimer<StatelessDhclientQueryTimer>(); }
void ZeroTouchSm::doStartSystemIdentitySetupTimer() { startTimer<SystemIdentitySetupTimer>(); }

void ZeroTouchSm::doStartConfigFetchTimer() {
  auto const& settings = ConfigFetchTimer::settings;
  Wait const wait = pacing_->forDownload(settings.timeout);
  startTimer<ConfigFetchTimer>(nullptr, settings.interval, wait.time);
  timer()->purposeIs(wait.purpose);
}

void ZeroTouchSm::doStartConfigFetchRetryTimer(std::uint16_t tryCount) {
  startTimer<ConfigFetchRetryTimer>(
      [this](Kel::Seconds usual) { return pacing_->beforeDownload(usual, retryCount()); },
      ConfigFetchRetryTimer::settings.interval * tryCount,
      ConfigFetchRetryTimer::settings.timeout * tryCount);
}

void ZeroTouchSm::doStartScriptExecTimer() {
  Kel::Seconds const timeout = config()->scriptExecTimeout();
  startTimer<ScriptExecTimer>(nullptr, timeout, timeout);
  if (flashFlush_) timer()->purposeIs("the flash is flushed");
}

// The pause before the next attempt is paced. The wait for the clean-up after it always has the usual length.
void ZeroTouchSm::doStartRetryWaitTimer() {
  if (awaitsDhcpCleanup()) return startTimer<RetryWaitTimer>();
  startTimer<RetryWaitTimer>(
      [this](Kel::Seconds usual) { return pacing_->beforeAttempt(usual, retryCount()); });
}

void ZeroTouchSm::doStartLeaseReleaseTimer() { startTimer<LeaseReleaseTimer>(); }
void ZeroTouchSm::doStartStartupFileSyncWaitTimer() { startTimer<StartupFileSyncWaitTimer>(); }

void InterfacesSetupTimer::handleTimerStop() {
  ztSm()->doStateTransition(ztSm()->stateSetupInterfaces(), ztSm()->stateDhcpQuery(),
                            TransitionCause::portsSetUp);
}

void DhclientQueryTimer::handleTimerStop() {
  if (ztSm()->currentState() != ztSm()->stateDhcpQuery()) return;
  if (ztSm()->takeBestOffer(ztSm()->intfStatus6Stateless().empty())) return;
  if (ztSm()->dhclientChildProcess()) {
    ztSm()->reportQueryFailure(ZTP_DHCPv4_QUERY_FAIL);
    ztSm()->doStopDhclient();
  }
  if (ztSm()->dhclient6ChildProcess()) {
    ztSm()->reportQueryFailure(ZTP_DHCPv6_QUERY_FAIL);
    ztSm()->doStopDhclient6();
  }
  ztSm()->doStateTransition(ztSm()->stateDhcpQuery(), ztSm()->stateStatelessDhcpQuery(),
                            TransitionCause::dhcpQueryOver);
}

void StatelessDhclientQueryTimer::handleTimerTick() {
  if (ztSm()->currentState() != ztSm()->stateStatelessDhcpQuery()) return;
  ztSm()->doStopDhclient6Stateless();
  if (ztSm()->askNextStatelessIntf() || ztSm()->takeBestOffer(true)) return;
  ztSm()->reportQueryFailure(ZTP_STATELESS_DHCPv6_QUERY_FAIL);
  ztSm()->doStateTransition(ztSm()->stateStatelessDhcpQuery(), ztSm()->stateRetry(),
                            {TransitionCause::statelessUnanswered, ztSm()->whyNoBootFile()});
}

void StatelessDhclientQueryTimer::handleTimerStop() {
  ztSm()->doStopDhclient6Stateless();
  if (ztSm()->takeBestOffer(true)) return;
  ztSm()->reportQueryFailure(ZTP_STATELESS_DHCPv6_QUERY_FAIL);
  ztSm()->doStateTransition(ztSm()->stateStatelessDhcpQuery(), ztSm()->stateRetry(),
                            {TransitionCause::statelessTimeout, ztSm()->whyNoBootFile()});
}

void SystemIdentitySetupTimer::handleTimerTick() {
  ztSm()->systemIdentitySetupTimerExpiredIs(true);
  if (ztSm()->readyToFetchConfig()) {
    ztSm()->doStateTransition(ztSm()->stateSetupSystemIdentity(), ztSm()->stateFetchConfig(),
                              TransitionCause::identitySettled);
  }
}

void SystemIdentitySetupTimer::handleTimerStop() {
  ztSm()->systemIdentitySetupTimerExpiredIs(true);
  if (ztSm()->readyToFetchConfig()) {
    ztSm()->doStateTransition(ztSm()->stateSetupSystemIdentity(), ztSm()->stateFetchConfig(),
                              TransitionCause::identitySettled);
  } else {
    Kel::String const missing = ztSm()->missingAddress();
    addressNotActive.log(missing);
    ztSm()->doUnconfigureSystemIdentity();
    ztSm()->doStateTransition(ztSm()->stateSetupSystemIdentity(), ztSm()->stateRetry(),
                              {TransitionCause::identityNotActive, missing});
  }
}

void ConfigFetchTimer::handleTimerTick() { ztSm()->handleCurlSockFd(); }

void ConfigFetchTimer::handleTimerStop() {
  Trouble const waits = ztSm()->whatTransferWaitsFor();
  ztSm()->downloadOutcomeIs(waits.text);
  ztSm()->doCurlShutdown();
  ZTP_CONFIG_DOWNLOAD_TIMEOUT.log(ztSm()->shownUri(), timeout());
  ztSm()->doStateTransition(ztSm()->stateFetchConfig(), ztSm()->stateRetry(),
                            {TransitionCause::downloadTimeout, waits});
}

void ConfigFetchRetryTimer::handleTimerStop() {
  // Networks lose addresses; what the retry needs may be gone by now.
  if (ztSm()->readyToFetchConfig()) {
    ztSm()->doStateTransition(ztSm()->stateRetryFetchConfig(), ztSm()->stateFetchConfig(),
                              TransitionCause::downloadAgain);
    return;
  }
  KEL_TRACE(traceZeroTouchSm, 1, "ConfigFetchRetryTimer::handleTimerStop not ztSm()->readyToFetchConfig()");
  Kel::String const missing = ztSm()->missingAddress();
  addressGone.log(missing);
  ztSm()->doStateTransition(ztSm()->stateRetryFetchConfig(), ztSm()->stateRetry(),
                            {TransitionCause::addressLost, missing});
}

void ScriptExecTimer::handleTimerStop() {
  if (ztSm()->flashFlush()) {
    ztSm()->endFlashFlush();
    ztSm()->failFlashFlush(Kel::format("it is not flushed after %g s", timeout()));
    return;
  }
  ztSm()->doKillRunningScript();
  ZTP_EXEC_SCRIPT_TIMEOUT.log(timeout());
  ztSm()->doStateTransition(ztSm()->stateCopyConfigOrExecScript(), ztSm()->stateRetry(),
                            TransitionCause::scriptTimeout);
}

void RetryWaitTimer::handleTimerStop() {
  if (ztSm()->awaitsDhcpCleanup()) {
    // The query goes on with whatever is left of the results.
    dhcpResultsLeft.log();
    ztSm()->doStateTransition(ztSm()->stateRetry(), ztSm()->stateDhcpQuery(),
                              TransitionCause::dhcpResultsRemain);
    return;
  }
  ztSm()->doStopDhclient();
  ztSm()->doStopDhclient6();
  ztSm()->doStopDhclient6Stateless();
  ztSm()->doCleanupAndRetry();
}

void LeaseReleaseTimer::handleTimerStop() {
  KEL_ASSERT(ztSm()->currentState() == ztSm()->stateShutdown(),
             "ztSm()->currentState() == ztSm()->stateShutdown()");
  ztSm()->doStopDhclient();
  ztSm()->doStopDhclient6();
  ztSm()->doStopDhclient6Stateless();
  ztSm()->doShutdown();
}

void StartupFileSyncWaitTimer::handleTimerStop() {
  ZTP_STARTUP_FILE_SYNC_TIMEOUT.log();
  ztSm()->doShutdown();
}

}  // namespace ZeroTouch
