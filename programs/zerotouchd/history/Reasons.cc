#include "programs/zerotouchd/history/Reasons.h"

namespace {

using State = ZeroTouch::ProvisioningState;
using Machine = ZeroTouch::ZeroTouchSmModel;

Kel::String chosenPort(Machine const& machine) {
  auto const& chosen = machine.choosenIntf();
  return chosen ? chosen->intfName() : "no port";
}

Kel::String whyRetry(Machine const& machine, bool late) {
  switch (machine.currentState()) {
    case State::stateDhcpQuery:
    case State::stateStatelessDhcpQuery:
      return "no DHCP server has named a boot file";
    case State::stateSetupSystemIdentity:
      return "what DHCP brought did not become active in time";
    case State::stateFetchConfig:
      if (late) return "the download took too long";
      return machine.curlTransferDone() ? "the download has failed: " + machine.curlErrorStr()
                                        : "nothing can be downloaded";
    case State::stateRetryFetchConfig:
      return late ? "the address is no longer active" : "the download has failed too often";
    case State::stateCopyConfigOrExecScript:
      return machine.fileIsHashPling() ? "the script has failed" : "the configuration could not be installed";
    default:
      return "something has failed";
  }
}

Kel::String whyShutdown(Machine const& machine) {
  if (machine.config()->cancelled()) return "an operator has cancelled provisioning";
  if (machine.currentState() == State::stateRetry) return "provisioning has run out of time";
  return machine.fileIsHashPling() ? "the script has succeeded" : "the configuration is installed";
}

}  // namespace

Kel::String reasonFor(Machine const& machine, State to, bool late) {
  switch (to) {
    case State::stateInit:
      return "provisioning is disabled";
    case State::stateSetupInterfaces:
      return "provisioning is enabled";
    case State::stateDhcpQuery:
      return machine.currentState() == State::stateRetry ? "what the attempt applied is undone"
                                                         : "the ports are set up";
    case State::stateStatelessDhcpQuery:
      return "no DHCP server has named a boot file yet";
    case State::stateSetupSystemIdentity:
      return "DHCP has named a boot file on " + chosenPort(machine);
    case State::stateFetchConfig:
      return machine.currentState() == State::stateRetryFetchConfig ? "the download is tried again"
                                                                    : "what DHCP brought is active";
    case State::stateRetryFetchConfig:
      return "the download has failed: " + machine.curlErrorStr();
    case State::stateCopyConfigOrExecScript:
      return "the download is complete";
    case State::stateRetry:
      return whyRetry(machine, late);
    case State::stateShutdown:
      return whyShutdown(machine);
    default:
      return "";
  }
}
