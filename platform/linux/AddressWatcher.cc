#include "platform/linux/AddressWatcher.h"

#include <linux/if_addr.h>

namespace Linux {

namespace {

bool inUse(Wire::IpGenAddrWithMask const& address, std::uint32_t flags) {
  return !isLinkLocal(address) && (flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) == 0;
}

}  // namespace

class AddressWatcher::PortsReactor : public Ports::NotifieeConst {
 public:
  PortsReactor(Kel::Ptr<Ports const> const& ports, AddressWatcher& watcher)
      : NotifieeConst(ports), watcher_(watcher) {}
  void onPort(Wire::IntfId const& intfId) override { watcher_.handlePort(intfId); }

 private:
  AddressWatcher& watcher_;
};

AddressWatcher::AddressWatcher(Entities const& entities, Netlink& netlink, Kel::Ptr<Ports const> ports)
    : entities_(entities), netlink_(netlink), ports_(std::move(ports)) {
  portsReactor_ = Kel::makePtr<PortsReactor>(ports_, *this);
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

// The entity has room for one. The configured one counts most, so that whoever waits for it sees it; then the
// one that was in use before; then a primary one.
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
