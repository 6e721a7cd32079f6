#include "platform/linux/links/Watchers.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "platform/kel/Trace.h"
#include "platform/linux/Warnings.h"
#include "platform/linux/links/LinkModes.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

namespace {

Kel::TraceFacility trace("LinkWatcher");

// Kinds of devices that are Ethernet by their type, but that stand above others or end a tunnel.
constexpr std::array<std::string_view, 12> noPorts = {"bridge",    "openvswitch", "vrf",       "vxlan",
                                                      "geneve",    "gretap",      "ip6gretap", "erspan",
                                                      "ip6erspan", "bareudp",     "batadv",    "macsec"};

// Returns nothing for a device that is never a port, whatever its name.
std::optional<PortKind> kindOf(Link const& link) {
  if (link.type != ARPHRD_ETHER || (link.flags & IFF_LOOPBACK) != 0) return std::nullopt;
  if (std::ranges::find(noPorts, link.kind) != noPorts.end()) return std::nullopt;
  if (link.kind == "bond" || link.kind == "team") return PortKind::lag;
  if (link.kind == "vlan") return PortKind::vlan;
  return PortKind::physical;
}

bool linkUp(Link const& link) { return (link.flags & IFF_UP) != 0 && link.carrier; }

Interface::OperStatus operStatus(Link const& link) {
  // Drivers that report no operational state are judged by their carrier (RFC 2863's "unknown").
  bool const up = link.operState == IF_OPER_UNKNOWN ? linkUp(link) : link.operState == IF_OPER_UP;
  return up ? Interface::OperStatus::up : Interface::OperStatus::down;
}

Wire::Ip6Addr linkLocalAddress(Addresses const& addresses) {
  for (auto const& [address, flags] : addresses) {
    bool const usable = (flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) == 0;
    if (address.isV6() && Grammar::isLinkLocal(address) && usable) return address.v6().address;
  }
  return {};
}

}  // namespace

LinkWatcher::LinkWatcher(Entities const& entities, PortSelection selection, Netlink& netlink,
                         Kel::Ptr<Ports> ports)
    : entities_(entities), selection_(std::move(selection)), netlink_(netlink), ports_(std::move(ports)) {
  l3Reactor_ = Kel::Reactor(entities_.l3IntfConfigDir, &L3::Intf::ConfigDir::NotifieeConst::onIntfConfig,
                            this, &LinkWatcher::handleL3Config);
  netlink_.listenerIs(this);
  for (auto const& [ifIndex, link] : netlink_.links()) onLink(ifIndex);
}

LinkWatcher::~LinkWatcher() { netlink_.listenerDel(this); }

void LinkWatcher::onLink(int ifIndex) {
  Link const* const link = netlink_.link(ifIndex);
  noteDevice(ifIndex, link);
  auto const kind = link != nullptr ? kindOf(*link) : std::nullopt;
  Wire::IntfId const intfId = kind && selection_.selects(link->name) ? idOf(*link) : Wire::IntfId();

  auto const known = tracked_.find(ifIndex);
  if (known != tracked_.end() && known->second.intfId == intfId) {
    Tracked const tracked = known->second;
    update(*tracked.status, intfId, *link);
    updatePort(tracked, *link);
    return;
  }
  if (known != tracked_.end()) remove(ifIndex);
  if (intfId && !claim(intfId, *link)) return;
  nameless_.erase(ifIndex);
  if (intfId) add(intfId, *kind, *link);
}

void LinkWatcher::onAddresses(int ifIndex) {
  auto const known = tracked_.find(ifIndex);
  Link const* const link = netlink_.link(ifIndex);
  if (known != tracked_.end() && link != nullptr) updatePort(known->second, *link);
}

// The forwarding model changes within the call that changed the configuration, since the caller may read it
// next.
void LinkWatcher::handleL3Config(Wire::IntfId const& intfId) {
  auto const owner = owners_.find(intfId);
  if (owner == owners_.end()) return;
  Link const* const link = netlink_.link(owner->second);
  if (link == nullptr) return;
  Kel::Ptr<Interface::IntfStatus> const status = tracked_.at(owner->second).status;
  status->forwardingModelIs(forwardingModel(intfId, *link));
}

void LinkWatcher::noteDevice(int ifIndex, Link const* link) {
  auto& devices = *entities_.kernelNetInfoStatus;
  Kel::String const before = std::exchange(deviceNames_[ifIndex], link != nullptr ? link->name : "");
  if (link == nullptr) deviceNames_.erase(ifIndex);
  auto const stale = devices.device(before);
  bool const renamed = link == nullptr || link->name != before;
  // Another device may have taken the name over in the meantime.
  if (stale && renamed && stale->ifIndex() == static_cast<std::uint32_t>(ifIndex)) devices.deviceDel(before);
  if (link != nullptr) devices.deviceIs(link->name)->ifIndexIs(static_cast<std::uint32_t>(ifIndex));
}

Wire::IntfId LinkWatcher::idOf(Link const& link) const {
  Wire::IntfId const intfId = selection_.intfId(link.name);
  if (!intfId) portNameInvalid.log(link.name);
  return intfId;
}

// Whether the name is free, or can be freed: after a dump, its owner may not have heard yet of its own new
// name.
bool LinkWatcher::claim(Wire::IntfId const& intfId, Link const& link) {
  auto owner = owners_.find(intfId);
  if (owner == owners_.end()) return true;
  onLink(owner->second);
  owner = owners_.find(intfId);
  if (owner == owners_.end()) return true;
  bool const isNews = nameless_.insert(link.ifIndex).second;
  if (isNews) portNameInUse.log(link.name, intfId.stringValue(), deviceNames_[owner->second]);
  return false;
}

void LinkWatcher::add(Wire::IntfId const& intfId, PortKind kind, Link const& link) {
  KEL_TRACE(trace, 3, intfId.stringValue() << ": device " << link.name << " " << link.ifIndex);
  Tracked tracked{intfId, kind, nullptr};
  switch (kind) {
    case PortKind::physical:
      tracked.status = Kel::makePtr<Interface::EthPhyIntfStatus>(intfId);
      break;
    case PortKind::lag:
      tracked.status = Kel::makePtr<Interface::EthIntfStatus>(intfId);
      break;
    case PortKind::vlan:
      tracked.status = Kel::makePtr<Interface::IntfStatus>(intfId);
      break;
  }
  update(*tracked.status, intfId, link);
  tracked_.insert_or_assign(link.ifIndex, tracked);
  owners_[intfId] = link.ifIndex;
  announce(tracked);
  updatePort(tracked, link);
}

void LinkWatcher::announce(Tracked const& tracked) {
  entities_.allIntfStatusDir->intfStatusIs(tracked.status);
  entities_.allIntfStatusLocalDir->intfStatusIs(tracked.status);
  auto const ethernet = Kel::Ptr(dynamic_cast<Interface::EthIntfStatus*>(tracked.status.get()));
  if (ethernet) entities_.ethIntfStatusDir->intfStatusIs(ethernet);
  switch (tracked.kind) {
    case PortKind::physical:
      entities_.ethPhyIntfConfigDir->intfConfigIs(tracked.intfId);
      entities_.ethPhyIntfStatusDir->intfStatusIs(
          Kel::Ptr(dynamic_cast<Interface::EthPhyIntfStatus*>(tracked.status.get())));
      break;
    case PortKind::lag:
      entities_.ethLagIntfStatusDir->intfStatusIs(ethernet);
      break;
    case PortKind::vlan:
      entities_.vlanIntfConfigDir->intfConfigIs(tracked.intfId);
      entities_.vlanIntfStatusDir->intfStatusIs(tracked.status);
      break;
  }
}

void LinkWatcher::remove(int ifIndex) {
  Tracked const tracked = tracked_.extract(ifIndex).mapped();
  Wire::IntfId const& intfId = tracked.intfId;
  KEL_TRACE(trace, 3, intfId.stringValue() << ": device gone");
  owners_.erase(intfId);
  switch (tracked.kind) {
    case PortKind::physical:
      entities_.ethPhyIntfStatusDir->intfStatusDel(intfId);
      entities_.ethPhyIntfConfigDir->intfConfigDel(intfId);
      break;
    case PortKind::lag:
      entities_.ethLagIntfStatusDir->intfStatusDel(intfId);
      break;
    case PortKind::vlan:
      entities_.vlanIntfStatusDir->intfStatusDel(intfId);
      entities_.vlanIntfConfigDir->intfConfigDel(intfId);
      break;
  }
  entities_.ethIntfStatusDir->intfStatusDel(intfId);
  entities_.allIntfStatusLocalDir->intfStatusDel(intfId);
  entities_.allIntfStatusDir->intfStatusDel(intfId);
  ports_->portDel(intfId);
  // The name is free for another device that it fits.
  auto const waiting = nameless_;
  for (int const other : waiting) onLink(other);
}

void LinkWatcher::update(Interface::IntfStatus& status, Wire::IntfId const& intfId, Link const& link) const {
  status.deviceNameIs(link.name);
  status.forwardingModelIs(forwardingModel(intfId, link));
  status.operStatusIs(operStatus(link));
  if (auto* const ethernet = dynamic_cast<Interface::EthIntfStatus*>(&status))
    updateEthernet(*ethernet, link);
  if (auto* const port = dynamic_cast<Interface::EthPhyIntfStatus*>(&status)) readLinkModes(link.name, *port);
}

void LinkWatcher::updateEthernet(Interface::EthIntfStatus& status, Link const& link) const {
  status.macAddrIs(link.macAddr);
  status.activeIs(true);
  status.linkStatusIs(linkUp(link) ? Interface::LinkStatus::up : Interface::LinkStatus::down);
}

void LinkWatcher::updatePort(Tracked const& tracked, Link const& link) {
  ports_->portIs(tracked.intfId, {.deviceName = link.name,
                                  .ifIndex = link.ifIndex,
                                  .kind = tracked.kind,
                                  .macAddr = link.macAddr,
                                  .linkUp = linkUp(link),
                                  .linkLocal = linkLocalAddress(netlink_.addresses(link.ifIndex))});
}

Interface::IntfForwardingModel LinkWatcher::forwardingModel(Wire::IntfId const& intfId,
                                                            Link const& link) const {
  using enum Interface::IntfForwardingModel;
  // A bridge or bond takes the frames for itself. A VRF has routes of its own, which neither the download nor
  // the release of the lease would take.
  if (link.master != 0) return bridged;
  return entities_.l3IntfConfigDir->intfConfig(intfId) ? routed : unconfigured;
}

namespace {

bool inUse(Wire::IpGenAddrWithMask const& address, std::uint32_t flags) {
  return !Grammar::isLinkLocal(address) && (flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) == 0;
}

}  // namespace

AddressWatcher::AddressWatcher(Entities const& entities, Netlink& netlink, Kel::Ptr<Ports const> ports)
    : entities_(entities), netlink_(netlink), ports_(std::move(ports)) {
  portsReactor_ = Kel::Reactor(ports_, &Ports::NotifieeConst::onPort, this, &AddressWatcher::handlePort);
  netlink_.listenerIs(this);
  for (auto const& [intfId, port] : ports_->port()) handlePort(intfId);
}

AddressWatcher::~AddressWatcher() { netlink_.listenerDel(this); }

void AddressWatcher::onAddresses(int ifIndex) {
  if (Wire::IntfId const intfId = ports_->intfId(ifIndex)) handlePort(intfId);
}

void AddressWatcher::handlePort(Wire::IntfId const& intfId) {
  Port const& port = ports_->port(intfId);
  if (!port) {
    entities_.ipStatus->ipIntfStatusDel(intfId);
    entities_.ip6Status->intfDel(intfId);
    return;
  }
  Addresses const addresses = netlink_.addresses(port.ifIndex);
  update(*entities_.ipStatus->ipIntfStatusIs(intfId), addresses);
  update(*entities_.ip6Status->intfIs(intfId), addresses);
}

// The entity holds one address. The configured one is preferred, so that whoever waits for it sees it; next
// the one that was shown before; next a primary address.
void AddressWatcher::update(Ip::IpIntfStatus& status, Addresses const& addresses) const {
  auto const& config = entities_.ipConfig->ipIntfConfig(status.intfId());
  Wire::IpAddrWithMask best;
  int bestRank = 0;
  for (auto const& [address, flags] : addresses) {
    if (address.isV6() || !inUse(address, flags)) continue;
    int rank = (flags & IFA_F_SECONDARY) != 0 ? 1 : 2;
    if (address.v4() == status.activeAddrWithMask()) rank = 3;
    if (config && address.v4() == config->addrWithMask()) rank = 4;
    if (rank <= bestRank) continue;
    bestRank = rank;
    best = address.v4();
  }
  status.activeAddrWithMaskIs(best);
}

void AddressWatcher::update(Ip6::IntfStatus& status, Addresses const& addresses) const {
  for (auto const& address : status.addr().keys()) {
    auto const found = addresses.find(address);
    if (found == addresses.end() || !inUse(found->first, found->second)) status.addrDel(address);
  }
  for (auto const& [address, flags] : addresses) {
    if (address.isV6() && inUse(address, flags)) status.addrIs(address.v6());
  }
}

}  // namespace Linux
