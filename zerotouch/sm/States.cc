// The states: how a change is requested, deferred and carried out, and what each entry does.
//
// The states, how each is entered, what ends it, and the timer that guards it:
//
// - stateInit: at rest, since provisioning is disabled or the hardware inventory is not ready yet. A
//   run starts (doTryStartZeroTouch) once both hold. No timer.
// - stateSetupInterfaces, from stateInit: every port is made routed and IPv6-capable. The end of
//   InterfacesSetupTimer leads to stateDhcpQuery.
// - stateDhcpQuery, from stateSetupInterfaces or stateRetry: DHCPv4 and stateful DHCPv6 clients run.
//   The first boot-file name leads to stateSetupSystemIdentity, the end of DhclientQueryTimer to
//   stateStatelessDhcpQuery.
// - stateStatelessDhcpQuery, from stateDhcpQuery: interfaces are asked one by one, on each tick of
//   StatelessDhclientQueryTimer the next. A boot-file name leads to stateSetupSystemIdentity; when
//   none is left, or at the timer's end, stateRetry follows.
// - stateSetupSystemIdentity, from either query: the answer has been applied. Once the address is
//   active, stateFetchConfig follows; the end of SystemIdentitySetupTimer undoes the answer and leads
//   to stateRetry.
// - stateFetchConfig, from stateSetupSystemIdentity or stateRetryFetchConfig: the transfer runs, and
//   then the signature is verified where one is asked for. The end leads to stateCopyConfigOrExecScript or
//   stateRetryFetchConfig, the end of ConfigFetchTimer to stateRetry.
// - stateRetryFetchConfig, from stateFetchConfig: the back-off. The end of ConfigFetchRetryTimer leads
//   back; after the third try stateRetry follows.
// - stateCopyConfigOrExecScript, from stateFetchConfig: the file is installed, or run under
//   ScriptExecTimer, which also bounds the flush of the flash after a script that has succeeded. Success
//   leads to stateShutdown, failure to stateRetry.
// - stateRetry, from any state: leases are released, and after RetryWaitTimer all that the attempt
//   applied is undone and stateDhcpQuery follows; past maxRunTime stateShutdown.
// - stateShutdown, from any state; nothing leaves it: leases are released under LeaseReleaseTimer,
//   then the reload is requested, after waits (StartupFileSyncWaitTimer) for a standby.
#include <cstdlib>

#include "platform/kel/Assert.h"
#include "platform/model/values/Grammar.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/dhcp/Offers.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

void ZeroTouchSm::doStateTransition(State fromStates, State toState, Cause const& cause) {
  SM_TRACE(9, " - Transitioning from " << stringValue(currentState()) << " to " << stringValue(toState));
  doCancelTimer();
  if (fromStates != stateInvalid() && (fromStates & currentState()) == stateInvalid()) {
    SM_TRACE(1, ": fromStates " << stringValue(fromStates) << " does not match currentState "
                                << stringValue(currentState()));
    return;
  }
  bool const stopping = transitionState() == stateInit() && toState != stateShutdown();
  if (shuttingDown() || stopping) {
    SM_TRACE(1, (stopping ? ": Zerotouch is stopping" : ": Zerotouch is shutting down")
                    << ", ignoring state transition from " << stringValue(currentState()) << " to "
                    << stringValue(toState));
    return;
  }
  transitionCauseIs(cause.kind);
  transitionCauseArgumentIs(cause.argument);
  transitionReasonIs(cause.reason());
  problem_ = cause.problem;
  if (std::getenv("ZEROTOUCH_FORCE_IMMEDIATE_STATE_TRANSITIONS") != nullptr) {
    nextStateIs(toState);
    return;
  }
  transitionStateIs(toState);
  stateTransitionAlarm_.at(Kel::now());
}

bool ZeroTouchSm::mayActIn(State states) const {
  return (states & currentState()) != stateInvalid() && transitionState() != stateInit() &&
         transitionState() != stateShutdown();
}

bool ZeroTouchSm::mayMoveOnFrom(State states) const {
  return (states & currentState()) != stateInvalid() && transitionState() == stateInvalid();
}

void ZeroTouchSm::handleStateTransitionClock() {
  State const requested = transitionState();
  if (requested == stateInvalid()) return;
  transitionStateIs(stateInvalid());
  nextStateIs(requested);
  // Disabled and enabled again within one pass of the loop: the second request had to wait for the first.
  if (requested == stateInit() && enabled()) doTryStartZeroTouch();
}

void ZeroTouchSm::nextStateIs(State state) {
  if (state == nextState()) return;
  ZeroTouchSmModel::nextStateIs(state);
  handleNextState();
}

void ZeroTouchSm::enter(State state) {
  SM_TRACE(
      5, " - " << stringValue(currentState()) << " -> " << stringValue(state) << ": " << transitionReason());
  noteOutcome(state);
  currentStateIs(state);
  stateTimeIs(Kel::now());
}

// A failure stays to be read until a run has succeeded: the attempts that follow it do not explain
// themselves.
void ZeroTouchSm::noteOutcome(State entered) {
  bool const failed = entered == stateRetry() || entered == stateRetryFetchConfig();
  // A run whose time is over ends with its last failure, which stays to be mended.
  bool const ended = (entered == stateShutdown() && transitionCause() != TransitionCause::runTimeOver) ||
                     entered == stateInit();
  bool const begins = entered == stateSetupInterfaces() || entered == stateDhcpQuery();
  if (failed) noteFailure();
  if (Cause(transitionCause()).isSuccess()) lastFailureTimeIs(0);
  if (failed || ended) whatToDoIs(ZeroTouch::whatToDo(problem_));
  // The first attempt begins with the ports, the others with the query.
  if (begins && currentState() != stateSetupInterfaces())
    attemptIs(currentState() == stateInit() ? 1 : attempt() + 1);
}

void ZeroTouchSm::noteFailure() {
  auto const answer = chosenAnswer();
  lastFailureTimeIs(Kel::now());
  lastFailureStateIs(currentState());
  lastFailureCauseIs(transitionReason());
  lastFailureProblemIs(problem_);
  lastFailureAttemptIs(attempt());
  lastFailurePortIs(choosenIntf() ? choosenIntf()->intfName() : "");
  lastFailureUrlIs(answer ? Grammar::withoutPasswords(answer->url()) : "");
}

void ZeroTouchSm::handleNextState() {
  SM_TRACE(9, " - Processing state transition, currentState=" << stringValue(currentState())
                                                              << ", nextState=" << stringValue(nextState()));
  status()->runTimeIs(Kel::now() - startTime());
  switch (nextState()) {
    case State::stateInit:
      enter(stateInit());
      break;
    case State::stateSetupInterfaces:
      KEL_ASSERT(currentState() == stateInit(), "currentState() == stateInit()");
      enter(stateSetupInterfaces());
      doSetupInterfaces();
      doStartInterfacesSetupTimer();
      break;
    case State::stateDhcpQuery:
      KEL_ASSERT(currentState() == stateSetupInterfaces() || currentState() == stateRetry(),
                 "currentState() == stateSetupInterfaces() || currentState() == stateRetry()");
      enter(stateDhcpQuery());
      doStartDhcpQuery();
      doStartDhclientQueryTimer();
      break;
    case State::stateStatelessDhcpQuery:
      KEL_ASSERT(currentState() == stateDhcpQuery(), "currentState() == stateDhcpQuery()");
      enter(stateStatelessDhcpQuery());
      doStartStatelessDhcpQuery();
      break;
    case State::stateSetupSystemIdentity:
      KEL_ASSERT((currentState() == stateDhcpQuery()) || (currentState() == stateStatelessDhcpQuery()),
                 "( currentState() == stateDhcpQuery() ) || ( currentState() == stateStatelessDhcpQuery() )");
      enter(stateSetupSystemIdentity());
      systemIdentitySetupTimerExpiredIs(false);
      configFetchTryCounterIs(0);
      doConfigureSystemIdentity();
      doStartSystemIdentitySetupTimer();
      break;
    case State::stateFetchConfig:
      KEL_ASSERT(currentState() == stateSetupSystemIdentity() || currentState() == stateRetryFetchConfig(),
                 "currentState() == stateSetupSystemIdentity() || currentState() == stateRetryFetchConfig()");
      enter(stateFetchConfig());
      enterFetchConfig();
      break;
    case State::stateRetryFetchConfig:
      KEL_ASSERT(currentState() == stateFetchConfig(), "currentState() == stateFetchConfig()");
      enter(stateRetryFetchConfig());
      enterRetryFetchConfig();
      break;
    case State::stateCopyConfigOrExecScript:
      KEL_ASSERT(currentState() == stateFetchConfig(), "currentState() == stateFetchConfig()");
      enter(stateCopyConfigOrExecScript());
      enterCopyConfigOrExecScript();
      break;
    case State::stateRetry:
      retryCountIs(retryCount() + 1);
      enter(stateRetry());
      offers_->noteFailure();
      enterRetry();
      break;
    case State::stateShutdown:
      enter(stateShutdown());
      enterShutdown();
      break;
    default:
      KEL_ASSERT(!"Invalid state transition", "!\"Invalid state transition\"");
  }
}

// What an earlier attempt left behind is gone before this one starts.
void ZeroTouchSm::enterFetchConfig() {
  endLeftoverScript();
  forgetTransfer();
  Cause const failure = doTryFetchConfigFromServer();
  if (!mayActIn(stateFetchConfig())) {
    doCurlShutdown();
  } else if (downloadRuns()) {
    doStartConfigFetchTimer();
  } else if (curlTransferDone() && curlSuccess()) {
    doStateTransition(stateFetchConfig(), stateCopyConfigOrExecScript(), TransitionCause::fileReceived);
  } else {
    doStateTransition(stateFetchConfig(), stateRetry(), failure);
  }
}

void ZeroTouchSm::enterRetryFetchConfig() {
  if (configFetchTryCounter() < maxConfigFetchTries()) {
    configFetchTryCounterIs(static_cast<std::uint16_t>(configFetchTryCounter() + 1));
    doStartConfigFetchRetryTimer(configFetchTryCounter());
  } else {
    configFetchTryCounterIs(0);
    doStateTransition(stateRetryFetchConfig(), stateRetry(),
                      {TransitionCause::downloadTriesUsedUp, {downloadProblem_, downloadOutcome()}});
  }
}

void ZeroTouchSm::enterCopyConfigOrExecScript() {
  fileCopySuccessIs(false);
  Cause const failure = doCopyConfigOrExecScript();
  if (!mayActIn(stateCopyConfigOrExecScript())) {
    doKillRunningScript();
  } else if (scriptChildProcess()) {
    doStartScriptExecTimer();
  } else if (fileCopySuccess()) {
    doCreateGuardFileAndShutdown({TransitionCause::configInstalled, doubtsAboutConfig()});
  } else {
    doStateTransition(stateCopyConfigOrExecScript(), stateRetry(), failure);
  }
}

void ZeroTouchSm::enterRetry() {
  awaitsDhcpCleanupIs(false);
  // The only place where the overall time limit is enforced: a run under way is never cut short.
  if (status()->runTime() < config()->maxRunTime() && std::getenv("ZEROTOUCH_FORCE_SHUTDOWN") == nullptr) {
    ZTP_RETRY.log(retryCount());
    doReleaseLease();
    doReleaseLease6();
    ports_->lookAtSkipped();
    configureMultiSpeedInterfaces();
    doStartRetryWaitTimer();
  } else {
    doStateTransition(stateRetry(), stateShutdown(), TransitionCause::runTimeOver);
  }
}

void ZeroTouchSm::enterShutdown() {
  doReleaseLease();
  doReleaseLease6();
  if (dhclientChildProcess() || dhclient6ChildProcess()) {
    doStartLeaseReleaseTimer();
  } else {
    doShutdown();
  }
}

}  // namespace ZeroTouch
