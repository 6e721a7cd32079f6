#include "zerotouch/identity/KelIpIntfStatus.h"

#include "zerotouch/sm/EntryReactors.h"

namespace ZeroTouch {

void ZeroTouchSm::ipIntfStatusIs(Wire::IntfId const& intfId) {
  follow(ipIntfStatus_, intfId, ipStatus()->ipIntfStatus(intfId), *this);
}

void ZeroTouchSm::ip6IntfStatusIs(Wire::IntfId const& intfId) {
  follow(ip6IntfStatus_, intfId, ip6Status()->intf(intfId), *this);
}

void ZeroTouchSm::KelIpIntfStatus::handleActiveAddrWithMask() {
  if (!sm_.mayMoveOnFrom(stateSetupSystemIdentity())) return;
  Kel::Ptr<IntfStatus> intf;
  sm_.findIntfStatusForInterface(notifier().intfId().stringValue(), intf);
  if (!intf || notifier().activeAddrWithMask() == Wire::IpAddrWithMask{} || !sm_.readyToFetchConfigV4())
    return;
  sm_.doStateTransition(stateSetupSystemIdentity(), stateFetchConfig(), TransitionCause::addressActive);
}

void ZeroTouchSm::KelIp6IntfStatus::handleAddr(Wire::Ip6AddrWithMask const& addr) {
  if (!sm_.mayMoveOnFrom(stateSetupSystemIdentity())) return;
  Kel::Ptr<IntfStatus> intf;
  sm_.findIntfStatusForInterface(notifier().intfId().stringValue(), intf);
  bool const added = notifier().addr(addr) && !addr.address.isZero();
  if (!intf || !added || !sm_.readyToFetchConfigV6()) return;
  sm_.doStateTransition(stateSetupSystemIdentity(), stateFetchConfig(), TransitionCause::addressActive);
}

}  // namespace ZeroTouch
