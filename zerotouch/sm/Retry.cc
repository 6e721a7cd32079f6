// Cleaning up after an attempt, and starting the next one.
#include <cstdlib>

#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// The running timer is left alone: the state change that follows cancels it.
void ZeroTouchSm::doCleanupCurrentState() {
  SM_TRACE(5, " - currentState=" << stringValue(currentState()));
  if (currentState() == stateDhcpQuery()) {
    doStopDhclient();
    doStopDhclient6();
  } else if (currentState() == stateStatelessDhcpQuery()) {
    doStopDhclient6Stateless();
  } else if (currentState() == stateFetchConfig()) {
    doCurlShutdown();
  } else if (currentState() == stateCopyConfigOrExecScript()) {
    doKillRunningScript();
  }
}

// Interfaces are not set up again on a retry.
void ZeroTouchSm::doCleanupAndRetry() {
  doUnconfigureSystemIdentity();
  choosenIntfIs(nullptr);
  bool const results = !dhcpStatus()->intfDhcpStatus().empty() || !dhcpStatus()->intfDhcp6Status().empty();
  if (!results || std::getenv("ZEROTOUCH_IGNORE_DHCLIENTCLEANUP") != nullptr) {
    doStateTransition(stateRetry(), stateDhcpQuery(), TransitionCause::attemptUndone);
    return;
  }
  // The script reports that the results are gone, maybe already while it runs here; a script that is missing
  // or fails never does, so the wait is bounded by the same timer once more.
  awaitsDhcpCleanupIs(true);
  doStartRetryWaitTimer();
  doCleanupDhclientState();
}

void ZeroTouchSm::resumeAfterDhcpCleanup() {
  if (!awaitsDhcpCleanup() || !mayActIn(stateRetry())) return;
  if (!dhcpStatus()->intfDhcpStatus().empty() || !dhcpStatus()->intfDhcp6Status().empty()) return;
  awaitsDhcpCleanupIs(false);
  doStateTransition(stateRetry(), stateDhcpQuery(), TransitionCause::dhcpResultsGone);
}

}  // namespace ZeroTouch
