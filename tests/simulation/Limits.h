// What is documented of the states: from which ones each may be entered, and how long it may last.
#pragma once

#include <algorithm>
#include <bit>

#include "zerotouch/sm/ZeroTouchSm.h"

using State = ZeroTouch::ProvisioningState;

inline unsigned number(State state) {
  return static_cast<unsigned>(std::countr_zero(static_cast<std::uint32_t>(state)));
}

inline bool mayFollow(State from, State to) {
  using enum ZeroTouch::ProvisioningState;
  constexpr auto answered =
      stateSetupSystemIdentity | stateFetchConfig | stateRetryFetchConfig | stateCopyConfigOrExecScript;
  constexpr auto running =
      stateSetupInterfaces | stateDhcpQuery | stateStatelessDhcpQuery | answered | stateRetry;
  constexpr State before[] = {running,
                              stateInit,
                              stateSetupInterfaces | stateRetry,
                              stateDhcpQuery,
                              stateDhcpQuery | stateStatelessDhcpQuery,
                              stateSetupSystemIdentity | stateRetryFetchConfig,
                              stateFetchConfig,
                              stateFetchConfig,
                              stateStatelessDhcpQuery | answered,
                              running | stateInit};
  return (before[number(to)] & from) != stateInvalid;
}

// Each cause leads from certain states to one other.
inline bool mayCause(ZeroTouch::TransitionCause cause, State from, State to) {
  using enum ZeroTouch::ProvisioningState;
  using enum ZeroTouch::TransitionCause;
  struct Way {
    ZeroTouch::TransitionCause cause;
    State from, to;
  };
  constexpr auto any = static_cast<State>(0x3ff);
  constexpr Way ways[] = {
      {provisioningEnabled, stateInit, stateSetupInterfaces},
      {portsSetUp, stateSetupInterfaces, stateDhcpQuery},
      {dhcpQueryOver, stateDhcpQuery, stateStatelessDhcpQuery},
      {bootFileNamed, stateDhcpQuery | stateStatelessDhcpQuery, stateSetupSystemIdentity},
      {addressActive, stateSetupSystemIdentity, stateFetchConfig},
      {identitySettled, stateSetupSystemIdentity, stateFetchConfig},
      {downloadFailed, stateFetchConfig, stateRetryFetchConfig},
      {downloadAgain, stateRetryFetchConfig, stateFetchConfig},
      {fileReceived, stateFetchConfig, stateCopyConfigOrExecScript},
      {noPortAsked, stateStatelessDhcpQuery, stateRetry},
      {noBootFile, stateStatelessDhcpQuery, stateRetry},
      {statelessUnanswered, stateStatelessDhcpQuery, stateRetry},
      {statelessTimeout, stateStatelessDhcpQuery, stateRetry},
      {identityNotActive, stateSetupSystemIdentity, stateRetry},
      {bootFileNotUrl, stateFetchConfig, stateRetry},
      {downloadNotStarted, stateFetchConfig, stateRetry},
      {downloadRefusedAtOnce, stateFetchConfig, stateRetry},
      {downloadTimeout, stateFetchConfig, stateRetry},
      {addressLost, stateRetryFetchConfig, stateRetry},
      {downloadTriesUsedUp, stateRetryFetchConfig, stateRetry},
      {fileEmpty, stateCopyConfigOrExecScript, stateRetry},
      {configNotInstalled, stateCopyConfigOrExecScript, stateRetry},
      {scriptFailed, stateCopyConfigOrExecScript, stateRetry},
      {scriptKilled, stateCopyConfigOrExecScript, stateRetry},
      {scriptTimeout, stateCopyConfigOrExecScript, stateRetry},
      {attemptUndone, stateRetry, stateDhcpQuery},
      {dhcpResultsGone, stateRetry, stateDhcpQuery},
      {dhcpResultsRemain, stateRetry, stateDhcpQuery},
      {provisioningDisabled, any, stateInit},
      {provisioningCancelled, any, stateShutdown},
      {configInstalled, stateCopyConfigOrExecScript, stateShutdown},
      {scriptSucceeded, stateCopyConfigOrExecScript, stateShutdown},
      {runTimeOver, stateRetry, stateShutdown},
  };
  return std::ranges::any_of(ways, [&](Way const& way) {
    return way.cause == cause && (way.from & from) != stateInvalid && way.to == to;
  });
}

// In seconds, of the state that has just been entered; its entry action may not have run yet.
inline Kel::Seconds longestTimeIn(ZeroTouch::ZeroTouchSm const& sm) {
  auto const tries = sm.configFetchTryCounter();
  Kel::Seconds const script = sm.fileIsHashPling() ? sm.config()->scriptExecTimeout() : 0;
  Kel::Seconds const longest[] = {Kel::never,
                                  30,
                                  15,
                                  5.0 * static_cast<double>(sm.intfStatus6Stateless().size()),
                                  60,
                                  90,
                                  tries < 3 ? 15.0 * (tries + 1) : 0,
                                  script,
                                  15 + 15,      // the pause, then the clean-up
                                  30 + 6 * 5};  // the release, then the waits for a standby
  return longest[number(sm.currentState())];
}
