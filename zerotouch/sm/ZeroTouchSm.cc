#include "zerotouch/sm/ZeroTouchSm.h"

#include "zerotouch/dhcp/KelIntfDhcpStatus.h"
#include "zerotouch/identity/KelIpIntfStatus.h"
#include "zerotouch/intf/KelEthPhyIntfStatus.h"
#include "zerotouch/sm/Reactors.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

Kel::TraceFacility traceZeroTouchSm("ZeroTouchSm");

ZeroTouchSm::ZeroTouchSm(PASSED_HANDLE_PARAMETERS,
                         Kel::Ptr<Interface::EthDevPamCollection const> ethDevPamCollection,
                         Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir,
                         Kel::Ptr<Kel::Clock const> const& clock,
                         Kel::Ptr<Kel::Clock const> const& stateTransitionClock)
    : ZeroTouchSmModel(PASSED_HANDLES, std::move(ethDevPamCollection), std::move(pamDesiredIntfDir)),
      kelConfig_(Kel::makePtr<KelConfig>(this->config(), *this)),
      kelDhcpStatus_(Kel::makePtr<KelDhcpStatus>(this->dhcpStatus(), *this)),
      kelIpStatus_(Kel::makePtr<KelIpStatus>(this->ipStatus(), *this)),
      kelIp6Status_(Kel::makePtr<KelIp6Status>(this->ip6Status(), *this)),
      kelEpisd_(Kel::makePtr<KelEpisd>(this->episd(), *this)),
      kelElisd_(Kel::makePtr<KelElisd>(this->elisd(), *this)),
      kelEthDevPamCollection_(Kel::makePtr<KelEthDevPamCollection>(this->ethDevPamCollection(), *this)),
      kelEntityMibStatus_(Kel::makePtr<KelEntityMibStatus>(this->entityMibStatus(), *this)),
      clock_(Kel::makePtr<KelClock>(clock, *this)),
      stateTransitionClock_(Kel::makePtr<KelStateTransitionClock>(stateTransitionClock, *this)) {
  for (auto const& name : this->dhcpStatus()->intfDhcpStatus().keys()) intfDhcpStatusIs(name);
  for (auto const& name : this->dhcpStatus()->intfDhcp6Status().keys()) intfDhcp6StatusIs(name);
  for (auto const& intfId : this->episd()->intfStatus().keys()) ethPhyIntfStatusIs(intfId);
  for (auto const& intfId : this->ipStatus()->ipIntfStatus().keys()) ipIntfStatusIs(intfId);
  for (auto const& intfId : this->ip6Status()->intf().keys()) ip6IntfStatusIs(intfId);
  handleTimer();
  handleStateTransitionClock();
  handleInitialized();
}

// Children are the owner's: none is left behind when the agent goes.
ZeroTouchSm::~ZeroTouchSm() {
  doStopDhclient();
  doStopDhclient6();
  doStopDhclient6Stateless();
  doCurlShutdown();
  doKillRunningScript();
}

}  // namespace ZeroTouch
