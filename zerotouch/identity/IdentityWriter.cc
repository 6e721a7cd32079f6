#include "zerotouch/identity/IdentityWriter.h"

#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"
#include "zerotouch/sm/SmTrace.h"

#define IDENTITY_TRACE(what, value) \
  KEL_TRACE(traceZeroTouchSm, 5, "IdentityWriter::" << __func__ << " - Configuring " << what << value)

namespace ZeroTouch {

ZeroTouchSm::IdentityWriter::IdentityWriter(ZeroTouchSm& sm)
    : sm_(sm),
      answer_(sm.chosenAnswer()->result()),
      intf_(sm.choosenIntf()),
      summary_(Kel::format("%s  [ ", intf_->intfName())) {}

void ZeroTouchSm::IdentityWriter::mtu() {
  if (answer_->mtu() == 0) return;
  IDENTITY_TRACE("interface: ", intf_->intfName() << " mtu=" << answer_->mtu());
  if (auto const config = sm_.intfConfig(intf_->intfId())) {
    config->mtuIs(answer_->mtu());
    sm_.identityIntf_ = intf_->intfId();
  }
  summary_ += Kel::format("Mtu: %d; ", answer_->mtu());
}

template <typename AddrWithMask>
void ZeroTouchSm::IdentityWriter::address(AddrWithMask const& addr, Configure<AddrWithMask> configure) {
  if (addr.address.isZero()) return;
  IDENTITY_TRACE("interface: ", intf_->intfName() << " ip=" << addr.stringValue());
  (sm_.*configure)(intf_, addr);
  summary_ += Kel::format("Ip Address: %s/%d; ", addr.address.stringValue(), addr.maskLength);
}

void ZeroTouchSm::IdentityWriter::address4() {
  address(answer_->addrWithMask().v4(), &ZeroTouchSm::doConfigureInterfaceIPv4);
}

void ZeroTouchSm::IdentityWriter::address6() {
  address(answer_->addrWithMask().v6(), &ZeroTouchSm::doConfigureInterfaceIPv6);
}

void ZeroTouchSm::IdentityWriter::hostname() {
  if (answer_->hostname().empty()) return;
  IDENTITY_TRACE("hostname: ", answer_->hostname());
  sm_.netConfig()->hostnameIs(answer_->hostname());
  summary_ += Kel::format("Hostname: %s; ", answer_->hostname());
}

void ZeroTouchSm::IdentityWriter::nameServers(Family family) {
  for (auto const& [index, server] : answer_->nameServer()) {
    IDENTITY_TRACE("name server: ", server.stringValue());
    if (family == Family::v4) {
      sm_.netConfig()->nameServerIs(index, server.v4());
    } else {
      sm_.netConfig()->v6NameServerIs(index, server.v6());
    }
    summary_ += Kel::format("Nameserver: %s; ", server.stringValue());
  }
}

void ZeroTouchSm::IdentityWriter::loggingHosts() {
  for (auto const& [name, host] : answer_->loggingHost()) {
    IDENTITY_TRACE("log server: ", name);
    sm_.sysLoggingConfig()->vrfLoggingHostIs(L3::VrfName("default"))->loggingHostIs(name, host);
    summary_ += Kel::format("Logserver: %s; ", name);
  }
}

void ZeroTouchSm::IdentityWriter::domainName() {
  if (answer_->domainName().empty()) return;
  IDENTITY_TRACE("domain name: ", answer_->domainName());
  sm_.netConfig()->domainNameIs(answer_->domainName());
  summary_ += Kel::format("Domain: %s; ", answer_->domainName());
}

void ZeroTouchSm::IdentityWriter::staticRoutes() {
  for (auto const& [index, route] : answer_->staticRoute()) {
    Kel::String const prefix = route.prefix.stringValue();
    Kel::String const hop = route.nextHop.stringValue();
    IDENTITY_TRACE("static route: ", "key=" << prefix << ", via=" << hop);
    addRoute(route.prefix, route.nextHop);
    summary_ += Kel::format("Route: key=%s, hop=%s; ", prefix, hop);
  }
}

// Several become several next hops of the one default route.
void ZeroTouchSm::IdentityWriter::gateways() {
  for (auto const& [index, gateway] : answer_->gateway()) {
    IDENTITY_TRACE("gateway: ", gateway.stringValue());
    addRoute({}, gateway.v4());
    summary_ += Kel::format("Gateway: %s; ", gateway.stringValue());
  }
}

// Without a next hop, the destination is on the link of the port.
void ZeroTouchSm::IdentityWriter::addRoute(Wire::IpAddrWithMask const& prefix, Wire::IpAddr const& hop) {
  Wire::IntfId const intfId = hop.isZero() ? intf_->intfId() : Wire::IntfId();
  sm_.routingConfig()->routeList()->routeIs(prefix, Routing::RouteType::forward)->viaIs({hop, intfId}, true);
}

// What the server has named, also when it is no URL.
void ZeroTouchSm::IdentityWriter::bootFile() {
  Kel::String const& url = sm_.chosenAnswer()->url();
  summary_ +=
      Kel::format("Boot File: %s ]", Grammar::withoutPasswords(url.empty() ? answer_->bootFileName() : url));
}

}  // namespace ZeroTouch
