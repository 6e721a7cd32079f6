#include "zerotouch/sm/ProvisioningTimers.h"

#include "platform/kel/Assert.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/Warnings.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

void InterfacesSetupTimer::handleTimerStop() {
  ztSm()->doStateTransition(ztSm()->stateSetupInterfaces(), ztSm()->stateDhcpQuery(),
                            TransitionCause::portsSetUp);
}

void DhclientQueryTimer::handleTimerStop() {
  if (ztSm()->currentState() != ztSm()->stateDhcpQuery()) return;
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
  if (ztSm()->askNextStatelessIntf()) return;
  ztSm()->reportQueryFailure(ZTP_STATELESS_DHCPv6_QUERY_FAIL);
  ztSm()->doStateTransition(ztSm()->stateStatelessDhcpQuery(), ztSm()->stateRetry(),
                            TransitionCause::statelessUnanswered);
}

void StatelessDhclientQueryTimer::handleTimerStop() {
  ztSm()->doStopDhclient6Stateless();
  ztSm()->reportQueryFailure(ZTP_STATELESS_DHCPv6_QUERY_FAIL);
  ztSm()->doStateTransition(ztSm()->stateStatelessDhcpQuery(), ztSm()->stateRetry(),
                            TransitionCause::statelessTimeout);
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
  ztSm()->doCurlShutdown();
  ZTP_CONFIG_DOWNLOAD_TIMEOUT.log(ztSm()->option67Uri(), timeout());
  ztSm()->doStateTransition(ztSm()->stateFetchConfig(), ztSm()->stateRetry(),
                            TransitionCause::downloadTimeout);
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
