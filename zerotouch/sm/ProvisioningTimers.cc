#include "zerotouch/sm/ProvisioningTimers.h"

#include "platform/kel/Assert.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

void InterfacesSetupTimer::handleTimerStop() {
  ztSm()->doStateTransition(ztSm()->stateSetupInterfaces(), ztSm()->stateDhcpQuery());
}

void DhclientQueryTimer::handleTimerStop() {
  if (ztSm()->currentState() != ztSm()->stateDhcpQuery()) return;
  if (ztSm()->dhclientChildProcess()) {
    ZTP_DHCPv4_QUERY_FAIL.log();
    ztSm()->doStopDhclient();
  }
  if (ztSm()->dhclient6ChildProcess()) {
    ZTP_DHCPv6_QUERY_FAIL.log();
    ztSm()->doStopDhclient6();
  }
  ztSm()->doStateTransition(ztSm()->stateDhcpQuery(), ztSm()->stateStatelessDhcpQuery());
}

void StatelessDhclientQueryTimer::handleTimerTick() {
  if (ztSm()->currentState() != ztSm()->stateStatelessDhcpQuery()) return;
  ztSm()->doStopDhclient6Stateless();
  if (ztSm()->askNextStatelessIntf()) return;
  ZTP_STATELESS_DHCPv6_QUERY_FAIL.log();
  ztSm()->doStateTransition(ztSm()->stateStatelessDhcpQuery(), ztSm()->stateRetry());
}

void StatelessDhclientQueryTimer::handleTimerStop() {
  ztSm()->doStopDhclient6Stateless();
  ZTP_STATELESS_DHCPv6_QUERY_FAIL.log();
  ztSm()->doStateTransition(ztSm()->stateStatelessDhcpQuery(), ztSm()->stateRetry());
}

void SystemIdentitySetupTimer::handleTimerTick() {
  ztSm()->systemIdentitySetupTimerExpiredIs(true);
  if (ztSm()->readyToFetchConfig()) {
    ztSm()->doStateTransition(ztSm()->stateSetupSystemIdentity(), ztSm()->stateFetchConfig());
  }
}

void SystemIdentitySetupTimer::handleTimerStop() {
  ztSm()->systemIdentitySetupTimerExpiredIs(true);
  if (ztSm()->readyToFetchConfig()) {
    ztSm()->doStateTransition(ztSm()->stateSetupSystemIdentity(), ztSm()->stateFetchConfig());
  } else {
    ztSm()->doUnconfigureSystemIdentity();
    ztSm()->doStateTransition(ztSm()->stateSetupSystemIdentity(), ztSm()->stateRetry());
  }
}

void ConfigFetchTimer::handleTimerTick() { ztSm()->handleCurlSockFd(); }

void ConfigFetchTimer::handleTimerStop() {
  ztSm()->doCurlShutdown();
  ZTP_CONFIG_DOWNLOAD_TIMEOUT.log(ztSm()->option67Uri(), timeout());
  ztSm()->doStateTransition(ztSm()->stateFetchConfig(), ztSm()->stateRetry());
}

void ConfigFetchRetryTimer::handleTimerStop() {
  // Networks lose addresses; what the retry needs may be gone by now.
  bool const ready = ztSm()->readyToFetchConfig();
  if (!ready)
    KEL_TRACE(traceZeroTouchSm, 1, "ConfigFetchRetryTimer::handleTimerStop not ztSm()->readyToFetchConfig()");
  ztSm()->doStateTransition(ztSm()->stateRetryFetchConfig(),
                            ready ? ztSm()->stateFetchConfig() : ztSm()->stateRetry());
}

void ScriptExecTimer::handleTimerStop() {
  ztSm()->doKillRunningScript();
  ZTP_EXEC_SCRIPT_TIMEOUT.log(timeout());
  ztSm()->doStateTransition(ztSm()->stateCopyConfigOrExecScript(), ztSm()->stateRetry());
}

void RetryWaitTimer::handleTimerStop() {
  if (ztSm()->awaitsDhcpCleanup()) {
    // The results have not gone in time; the query goes on with whatever is left of them.
    ztSm()->doStateTransition(ztSm()->stateRetry(), ztSm()->stateDhcpQuery());
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
