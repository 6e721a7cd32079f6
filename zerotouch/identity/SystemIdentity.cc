// Applying the identity that the DHCP answer brought, waiting for its address, and taking it back.
#include "platform/kel/Assert.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/identity/IdentityWriter.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

constexpr std::uint32_t defaultMtu = 1500;
constexpr Wire::IpAddrWithMask noAddress{{}, 32};

}  // namespace

void ZeroTouchSm::doConfigureSystemIdentity() {
  auto const intfStatus = choosenIntf();
  KEL_ASSERT(intfStatus, "intfStatus");
  chooseAnswer();  // The other family may have answered since the port was chosen.
  auto const answer = chosenAnswer();
  if (!answer) return;
  if (answer->family() == AnswerFamily::dhcpv4) {
    doConfigureSystemIdentityV4();
  } else {
    doConfigureSystemIdentityV6();
  }
}

void ZeroTouchSm::doConfigureSystemIdentityV4() {
  IdentityWriter writer(*this);
  writer.mtu();
  writer.address4();
  writer.hostname();
  writer.nameServers(IdentityWriter::Family::v4);
  writer.loggingHosts();
  writer.domainName();
  writer.staticRoutes();
  writer.gateways();
  writer.bootFile();
  ZTP_DHCPv4_SUCCESS.log(writer.summary());
}

// Host name, log servers, routes and gateways are not taken from a DHCPv6 answer.
void ZeroTouchSm::doConfigureSystemIdentityV6() {
  IdentityWriter writer(*this);
  writer.mtu();
  writer.address6();
  writer.nameServers(IdentityWriter::Family::v6);
  writer.domainName();
  writer.bootFile();
  bool const stateless = chosenAnswer()->family() == AnswerFamily::statelessDhcpv6;
  (stateless ? ZTP_STATELESS_DHCPv6_SUCCESS : ZTP_DHCPv6_SUCCESS).log(writer.summary());
}

void ZeroTouchSm::doConfigureInterfaceIPv4(Kel::Ptr<IntfStatus> const& intf,
                                           Wire::IpAddrWithMask const& addr) {
  Wire::IntfId const& intfId = intf->intfId();
  KEL_ASSERT(intfId, "intfId");
  SM_TRACE(5,
           " - Configuring interface " << intfId.stringValue() << " IP address as: " << addr.stringValue());
  portConfig_->ipIntfConfigIs(intfId)->addrWithMaskIs(addr);
  identityIntf_ = intfId;
}

void ZeroTouchSm::doConfigureInterfaceIPv6(Kel::Ptr<IntfStatus> const& intf,
                                           Wire::Ip6AddrWithMask const& addr) {
  Wire::IntfId const& intfId = intf->intfId();
  KEL_ASSERT(intfId, "intfId");
  SM_TRACE(5,
           " - Configuring interface " << intfId.stringValue() << " IP address as: " << addr.stringValue());
  portConfig_->ip6IntfConfigIs(intfId)->addrIs(addr);
  identityIntf_ = intfId;
  identityAddr6_ = addr;
}

// A VLAN interface's record counts before that of a port of the same name.
Kel::Ptr<Interface::IntfConfig> ZeroTouchSm::intfConfig(Wire::IntfId const& intfId) const {
  if (auto const vlan = vicd()->intfConfig(intfId)) return vlan;
  return epicd()->intfConfig(intfId);
}

void ZeroTouchSm::doUnconfigureSystemIdentity() {
  netConfig()->hostnameIs("");
  netConfig()->nameServerDelAll();
  netConfig()->v6NameServerDelAll();
  if (auto const vrf = sysLoggingConfig()->vrfLoggingHost(L3::VrfName("default"))) vrf->loggingHostDelAll();
  sysLoggingConfig()->vrfLoggingHostDelAll();
  netConfig()->domainNameIs("");
  routingConfig()->routeList()->routeDelAll();

  auto const addr6 = std::exchange(identityAddr6_, std::nullopt);
  Wire::IntfId intfId = std::exchange(identityIntf_, {});
  if (!intfId && choosenIntf()) intfId = choosenIntf()->intfId();
  if (!intfId) return;
  if (auto const config = intfConfig(intfId)) config->mtuIs(defaultMtu);
  if (auto const ip = ipConfig()->ipIntfConfig(intfId)) ip->addrWithMaskIs(noAddress);
  if (auto const ip6 = ip6Config()->intf(intfId); ip6 && addr6) ip6->addrDel(*addr6);
}

void ZeroTouchSm::ipIntfStatusIs(Wire::IntfId const& intfId) {
  Kel::follow(ipIntfStatus_, intfId, ipStatus()->ipIntfStatus(intfId), [this, intfId](auto const& status) {
    return Kel::Reactor(status, &Ip::IpIntfStatus::NotifieeConst::onActiveAddrWithMask,
                        [this, intfId] { handleActiveAddrWithMask(intfId); });
  });
}

void ZeroTouchSm::ip6IntfStatusIs(Wire::IntfId const& intfId) {
  Kel::follow(ip6IntfStatus_, intfId, ip6Status()->intf(intfId), [this, intfId](auto const& status) {
    return Kel::Reactor(status, &Ip6::IntfStatus::NotifieeConst::onAddr,
                        [this, intfId](Wire::Ip6AddrWithMask const& addr) { handleAddr(intfId, addr); });
  });
}

void ZeroTouchSm::handleActiveAddrWithMask(Wire::IntfId const& intfId) {
  if (!mayMoveOnFrom(stateSetupSystemIdentity())) return;
  Kel::Ptr<IntfStatus> intf;
  findIntfStatusForInterface(intfId.stringValue(), intf);
  auto const status = ipStatus()->ipIntfStatus(intfId);
  bool const active = status && status->activeAddrWithMask() != Wire::IpAddrWithMask{};
  if (!intf || !active || !readyToFetchConfigV4()) return;
  doStateTransition(stateSetupSystemIdentity(), stateFetchConfig(), TransitionCause::addressActive);
}

void ZeroTouchSm::handleAddr(Wire::IntfId const& intfId, Wire::Ip6AddrWithMask const& addr) {
  if (!mayMoveOnFrom(stateSetupSystemIdentity())) return;
  Kel::Ptr<IntfStatus> intf;
  findIntfStatusForInterface(intfId.stringValue(), intf);
  auto const status = ip6Status()->intf(intfId);
  bool const added = status && status->addr(addr) && !addr.address.isZero();
  if (!intf || !added || !readyToFetchConfigV6()) return;
  doStateTransition(stateSetupSystemIdentity(), stateFetchConfig(), TransitionCause::addressActive);
}

}  // namespace ZeroTouch
