// What is documented of the states: from which ones each may be entered, and how long it may last.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <optional>

#include "zerotouch/agent/Policy.h"
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

// A pause of `described` seconds between attempts, as long as platform.toml can make it.
inline Kel::Seconds longestPause(Kel::Seconds described, unsigned doublings) {
  auto const pacing = ZeroTouch::policy()->pacing();
  Kel::Seconds const grown = std::min(described * std::pow(2.0, doublings), pacing->retryBackoffMax());
  Kel::Seconds const asked = pacing->retryAfter() ? 600 : 0;
  return std::max({described, grown, asked}) * (1 + pacing->retryJitter());
}

// In seconds, of the state that has just been entered; its entry action may not have run yet.
inline Kel::Seconds longestTimeIn(ZeroTouch::ZeroTouchSm const& sm) {
  auto const policy = ZeroTouch::policy();
  bool const patient = policy->dhcp()->clientTiming() == ZeroTouch::ClientTiming::rfc ||
                       policy->pacing()->retryBackoffMax() > 0;
  // A simulated body comes in two pieces.
  Kel::Seconds const stall = policy->download()->stallLimit();
  auto const tries = sm.configFetchTryCounter();
  // The script, and then the flush of the flash.
  Kel::Seconds const script = sm.fileIsHashPling() ? 2 * sm.config()->scriptExecTimeout() : 0;
  Kel::Seconds const longest[] = {Kel::never,
                                  30 + policy->pacing()->startJitter(),
                                  patient ? 60.0 : 15.0,
                                  5.0 * static_cast<double>(sm.intfStatus6Stateless().size()),
                                  60,
                                  stall > 0 ? 3 * (stall + 1) : 90,
                                  tries < 3 ? longestPause(15.0 * (tries + 1), sm.retryCount()) : 0,
                                  script,
                                  longestPause(15, sm.retryCount()) + 15,  // the pause, then the clean-up
                                  30 + 6 * 5};  // the release, then the waits for a standby
  return longest[number(sm.currentState())];
}
