#include "zerotouch/dhcp/KelIntfDhcpStatus.h"

#include "zerotouch/agent/Events.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

void ZeroTouchSm::KelIntfDhcpResult::handleBootFileName() {
  Kel::String const& bootFileName = notifier().bootFileName();
  Kel::String const& device = notifier().intfName();
  KEL_TRACE(traceZeroTouchSm, 5, "KelIntfDhcpStatus::" << __func__ << " bootFileName: " << bootFileName);
  if (bootFileName.empty() || !sm_.mayActIn(stateDhcpQuery() | stateStatelessDhcpQuery())) return;
  KEL_TRACE(traceZeroTouchSm, 5,
            "KelIntfDhcpStatus::" << __func__ << " - DHCP bootfile-name= " << bootFileName << " learnt for "
                                  << device);
  Kel::Ptr<IntfStatus> intf;
  sm_.findIntfStatusForKernelIntf(device, intf);
  if (!intf) return;
  if (sm_.choosenIntf()) {
    KEL_TRACE(traceZeroTouchSm, 5, "Return " << __func__ << " - BootFileName is already received ");
    return;
  }
  sm_.doStopDhclient();
  sm_.doStopDhclient6();
  sm_.doStopDhclient6Stateless();
  sm_.choosenIntfIs(intf);
  sm_.doStateTransition(stateDhcpQuery() | stateStatelessDhcpQuery(), stateSetupSystemIdentity(),
                        {TransitionCause::bootFileNamed, intf->intfName()});
}

void ZeroTouchSm::KelIntfDhcpStatus::handleIntfDhcpReason() {
  KEL_TRACE(traceZeroTouchSm, 5, "KelIntfDhcpStatus::" << __func__ << " reason: " << notifier().reason());
  if (!sm_.mayMoveOnFrom(stateDhcpQuery()) || !sm_.allInterfacesFailedDhcp()) return;
  sm_.reportQueryFailure(ZTP_DHCPv4_QUERY_FAIL);
  sm_.doStopDhclient();
}

bool ZeroTouchSm::allInterfacesFailedDhcp() const {
  for (auto const& [intfId, intf] : intfStatus()) {
    auto const result = dhcpStatus()->intfDhcpStatus(intf->kernelIntfName());
    if (!result) {
      SM_TRACE(5, " - Still waiting for DHCP v4 status for interface " << intf->intfName());
      return false;
    }
    if (result->reason() != "FAIL" && result->reason() != "TIMEOUT") return false;
    SM_TRACE(5,
             " - Dhclient's v4 \"reason\" for interface " << intf->intfName() << " is: " << result->reason());
  }
  SM_TRACE(5, " - All interfaces failed to get a dhcp response");
  return true;
}

}  // namespace ZeroTouch
