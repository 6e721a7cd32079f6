// What starts a run and what ends it: enabling, disabling, cancelling, the retry, the shutdown with its
// reload request, and the settings file.
#include <cstdlib>

#include "platform/kel/ActivityManager.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/dhcp/DhcpClient.h"
#include "zerotouch/dhcp/Offers.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/Pacing.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

constexpr std::uint16_t maxStartupFileSyncWaits = 5;

}  // namespace

void ZeroTouchSm::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  startTimeIs(Kel::now());
  stateTimeIs(startTime());
  transitionCauseIs(TransitionCause::agentStarted);
  transitionReasonIs(Cause(TransitionCause::agentStarted).reason());
  doReadConfigFile();
  removeUnfinishedCopies();
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
  offers_->startRun();
  pacing_->forget();
  resume_ = nullptr;
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
  resume_ = nullptr;
  doKillRunningScript();
  doUnconfigureSystemIdentity();
  choosenIntfIs(nullptr);
  for (auto const& intfId : phyIntfStatus().keys()) doUnregisterEthPhyIntf(intfId.stringValue());
  for (auto const& intfId : lagIntfStatus().keys()) doUnregisterLagIntf(intfId.stringValue());
  intfStatus6DelAll();
  intfStatus6StatelessDelAll();
  intfLldpPoolDelAll();
  intfNoSpeedChangePoolDelAll();
  portConfig_->linkModeDelAll();
  portConfig_->layer3DelAll();
}

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

// The reactor on Config.enabled does the rest.
void ZeroTouchSm::doCancelZeroTouch() { config()->enabledIs(false); }

void ZeroTouchSm::doCreateGuardFileAndShutdown(Cause const& cause) {
  doAddConfigEntry(disableSetting, disableOnNextReload);
  doWriteConfigFile();
  doStateTransition(stateInvalid(), stateShutdown(), cause);
}

bool ZeroTouchSm::isFixedSystem() {
  if (!fixedSystem_) fixedSystem_ = Kel::activityManager()->config()->cellType() == "fixed";
  return *fixedSystem_;
}

void ZeroTouchSm::doShutdown() {
  if (reloadRequested()) return;
  bool const fixed = isFixedSystem();
  if (!fixed) {
    auto const standby = fileReplicationStatus()->entry("RedSup");
    // Without an entry there is no standby to wait for.
    bool const synchronised = !standby || standby->synchronized();
    if (!synchronised && startupFileSyncCounter() <= maxStartupFileSyncWaits) {
      startupFileSyncCounterIs(static_cast<std::uint16_t>(startupFileSyncCounter() + 1));
      doStartStartupFileSyncWaitTimer();
      return;
    }
  }
  ZTP_RELOAD.log();
  if (!fixed && startupFileSyncCounter() > maxStartupFileSyncWaits) ZTP_STARTUP_FILE_SYNC_FAIL.log();
  doCancelTimer();
  reloadRequestedIs(true);
  if (!fixed) reloadConfig()->allIs(true);
  reloadConfig()->reasonIs("ZTP RELOAD");
  reloadConfig()->reloadTimeIs(Kel::now());
}

void ZeroTouchSm::doReadConfigFile() {
  auto const settings = readSettings(filePathFromFSRoot(defaultConfigFilePath));
  if (!settings) {
    SM_TRACE(5, " Failed to open config file");
    return;
  }
  for (auto const& [key, value] : *settings) {
    SM_TRACE(5, " - read key=" << key << " value=" << value);
    configEntryIs(key, value);
  }
}

void ZeroTouchSm::doWriteConfigFile() {
  if (!configModified()) return;
  Settings settings;
  for (auto const& [key, value] : configEntry()) {
    SM_TRACE(5, " Writing key=" << key << " value=" << value << " to the config file");
    settings[key] = value;
  }
  auto const error = writeSettings(filePathFromFSRoot(defaultConfigFilePath), settings);
  if (!error.empty()) settingsNotWritten.log(error);
}

void ZeroTouchSm::doAddConfigEntry(Kel::String key, Kel::String value) {
  SM_TRACE(5, " key: " << key << " value: " << value);
  configEntryIs(key, std::move(value));
  configModifiedIs(true);
}

void ZeroTouchSm::doRemoveConfigEntry(Kel::String key) {
  SM_TRACE(5, " key: " << key);
  configEntryDel(key);
  configModifiedIs(true);
}

}  // namespace ZeroTouch
