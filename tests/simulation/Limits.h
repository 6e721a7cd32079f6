// What is documented of the states: from which ones each may be entered, and how long it may last.
#pragma once

#include <algorithm>
#include <bit>
#include <optional>

#include "zerotouch/sm/ZeroTouchSm.h"

using State = ZeroTouch::ProvisioningState;

inline unsigned number(State state) {
  return static_cast<unsigned>(std::countr_zero(static_cast<std::uint32_t>(state)));
}

// Each cause leads from certain states to one other.
struct Way {
  ZeroTouch::TransitionCause cause;
  State from, to;
};
inline auto const& ways() {
  using enum ZeroTouch::ProvisioningState;
  using enum ZeroTouch::TransitionCause;
  constexpr auto running = stateSetupInterfaces | stateDhcpQuery | stateStatelessDhcpQuery |
                           stateSetupSystemIdentity | stateFetchConfig | stateRetryFetchConfig |
                           stateCopyConfigOrExecScript | stateRetry;
  static constexpr Way all[] = {
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
      {provisioningDisabled, running, stateInit},
      {provisioningCancelled, running | stateInit, stateShutdown},
      {configInstalled, stateCopyConfigOrExecScript, stateShutdown},
      {scriptSucceeded, stateCopyConfigOrExecScript, stateShutdown},
      {runTimeOver, stateRetry, stateShutdown},
  };
  return all;
}
inline bool mayFollow(State from, State to, std::optional<ZeroTouch::TransitionCause> cause = {}) {
  return std::ranges::any_of(ways(), [&](Way const& way) {
    return (way.from & from) != State::stateInvalid && way.to == to && way.cause == cause.value_or(way.cause);
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
