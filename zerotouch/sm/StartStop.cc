// What starts a run and what stops it.
#include <cstdlib>

#include "platform/kel/ActivityManager.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/dhcp/DhclientFiles.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

void ZeroTouchSm::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  startTimeIs(Kel::now());
  stateTimeIs(startTime());
  transitionCauseIs(TransitionCause::agentStarted);
  transitionReasonIs(Cause(TransitionCause::agentStarted).reason());
  doReadConfigFile();
  handleEntityMibRoot();
  handleEnabled();
  initializeLinkModes();
  handleCancelled();
}

bool ZeroTouchSm::shuttingDown() const {
  return currentState() == stateShutdown() || transitionState() == stateShutdown();
}

void ZeroTouchSm::handleEnabled() {
  SM_TRACE(5, " enabled: " << config()->enabled());
  if (shuttingDown()) {
    // Noted, and nothing more: a request now would cancel the timer that finishes the shutdown.
    enabledIs(config()->enabled());
    return;
  }
  if (config()->enabled()) {
    enabledIs(true);
    SM_TRACE(5, " - ZeroTouch enabled");
    doTryStartZeroTouch();
  } else {
    SM_TRACE(5, " - ZeroTouch disabled");
    status()->enabledIs(false);
    enabledIs(false);
    doStopZeroTouch(false);
  }
}

void ZeroTouchSm::handleCancelled() {
  SM_TRACE(5, " cancelled: " << config()->cancelled());
  if (shuttingDown() || !config()->cancelled() || !enabled()) return;
  enabledIs(false);
  doStopZeroTouch(true);
}

bool ZeroTouchSm::preConditionsMet() const {
  auto const root = entityMibStatus() ? entityMibStatus()->root() : nullptr;
  bool const initialised = root && root->initStatus() == EntityMib::InitStatus::initialized;
  SM_TRACE(8, " enabled: " << config()->enabled() << " entityMibStatus: " << bool(entityMibStatus())
                           << " root: " << bool(root) << " initialized: " << initialised);
  return config()->enabled() && initialised;
}

void ZeroTouchSm::doTryStartZeroTouch() {
  // A change that is pending either starts the run already or, towards stateInit, tries again once it is
  // done.
  if (currentState() != stateInit() || transitionState() != stateInvalid()) return;
  if (!preConditionsMet()) {
    SM_TRACE(8, " PreConditions failed");
    return;
  }
  SM_TRACE(8, " - Starting ZeroTouch");
  enabledIs(true);
  status()->enabledIs(true);
  ZTP_INIT.log();
  chassis_ = entityMibStatus()->root();
  setenv("SYSNAME", Kel::activityManager()->config()->systemName().c_str(), 1);
  doKillRunningDhclient(dhclientPidFilePath);
  doKillRunningDhclient(dhclient6PidFilePath);
  doUnconfigureSystemIdentity();
  choosenIntfIs(nullptr);
  doCleanupDhclientState();
  doCreateDhclientConfigFile();
  doCreateDhclient6ConfigFile();
  doStateTransition(stateInit(), stateSetupInterfaces(), TransitionCause::provisioningEnabled);
}

void ZeroTouchSm::doStopZeroTouch(bool cancelled) {
  ZTP_CANCEL.log();
  bool const ran = currentState() != stateInit() || transitionState() != stateInvalid();
  doCleanupCurrentState();
  if (cancelled) {
    doCreateGuardFileAndShutdown(TransitionCause::provisioningCancelled);
    return;
  }
  // Requested first: what the platform reports while things are taken back is no reason to take them up
  // again.
  doStateTransition(stateInvalid(), stateInit(), TransitionCause::provisioningDisabled);
  // Before a run starts, the agent has changed nothing that it could take back.
  if (ran) leaveAsFound();
}

// Nobody comes after a disabled run to tidy up, so it takes back all that it did.
void ZeroTouchSm::leaveAsFound() {
  doStopDhclient();
  doStopDhclient6();
  doStopDhclient6Stateless();
  doCurlShutdown();
  doKillRunningScript();
  doUnconfigureSystemIdentity();
  choosenIntfIs(nullptr);
  for (auto const& intfId : phyIntfStatus().keys()) doUnregisterEthPhyIntf(intfId.stringValue());
  for (auto const& intfId : lagIntfStatus().keys()) doUnregisterLagIntf(intfId.stringValue());
  intfStatus6DelAll();
  intfStatus6StatelessDelAll();
  intfLldpPoolDelAll();
  intfNoSpeedChangePoolDelAll();
  restoreSpeeds();
  withdrawLayer3();
}

}  // namespace ZeroTouch
