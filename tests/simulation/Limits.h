// What is documented of the states: from which ones each may be entered, and how long it may last.
#pragma once

#include "zerotouch/sm/ZeroTouchSm.h"

inline ZeroTouch::ProvisioningState allowedBefore(ZeroTouch::ProvisioningState state) {
  using enum ZeroTouch::ProvisioningState;
  switch (state) {
    case stateInit:
      return stateSetupInterfaces | stateDhcpQuery | stateStatelessDhcpQuery | stateSetupSystemIdentity |
             stateFetchConfig | stateRetryFetchConfig | stateCopyConfigOrExecScript | stateRetry;
    case stateSetupInterfaces:
      return stateInit;
    case stateDhcpQuery:
      return stateSetupInterfaces | stateRetry;
    case stateStatelessDhcpQuery:
      return stateDhcpQuery;
    case stateSetupSystemIdentity:
      return stateDhcpQuery | stateStatelessDhcpQuery;
    case stateFetchConfig:
      return stateSetupSystemIdentity | stateRetryFetchConfig;
    case stateRetryFetchConfig:
    case stateCopyConfigOrExecScript:
      return stateFetchConfig;
    case stateRetry:
      return stateStatelessDhcpQuery | stateSetupSystemIdentity | stateFetchConfig | stateRetryFetchConfig |
             stateCopyConfigOrExecScript;
    case stateShutdown:
      return allowedBefore(stateInit) | stateInit;
    default:
      return stateInvalid;
  }
}

// In seconds, of the state that has just been entered; its entry action may not have run yet.
inline Kel::Seconds longestTimeIn(ZeroTouch::ZeroTouchSm const& sm) {
  using enum ZeroTouch::ProvisioningState;
  constexpr Kel::Seconds releases = 30;
  constexpr Kel::Seconds waitsForStandby = 6 * 5;
  switch (sm.currentState()) {
    case stateSetupInterfaces:
      return 30;
    case stateDhcpQuery:
      return 15;
    case stateStatelessDhcpQuery:
      return 5.0 * static_cast<double>(sm.intfStatus6Stateless().size());
    case stateSetupSystemIdentity:
      return 60;
    case stateFetchConfig:
      return 90;
    case stateRetryFetchConfig:
      return sm.configFetchTryCounter() < 3 ? 15.0 * (sm.configFetchTryCounter() + 1) : 0;
    case stateCopyConfigOrExecScript:
      return sm.fileIsHashPling() ? sm.config()->scriptExecTimeout() : 0;
    case stateRetry:
      return 15 + 15;
    case stateShutdown:
      return releases + waitsForStandby;
    default:
      return Kel::never;
  }
}
