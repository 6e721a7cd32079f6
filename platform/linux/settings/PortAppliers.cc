#include "platform/linux/settings/PortAppliers.h"

#include "platform/linux/settings/SettingKinds.h"

namespace Linux {

namespace {

// A visit that changes everything takes half a millisecond, most of it in the kernel.
constexpr int portsPerPass = 8;

}  // namespace

ApplyQueue::ApplyQueue(Kel::Ptr<Ports const> ports, Netlink const& netlink, DeviceSettings& settings)
    : ports_(std::move(ports)), netlink_(netlink), settings_(settings) {
  portsReactor_ = Kel::Reactor(ports_, &Ports::NotifieeConst::onPort, this, &ApplyQueue::handlePort);
  for (auto const& [intfId, port] : ports_->port()) handlePort(intfId);
}

void ApplyQueue::add(Wire::IntfId const& intfId) {
  waiting_.insert(intfId);
  pass_.in(0);
}

void ApplyQueue::handlePort(Wire::IntfId const& intfId) {
  Port const& port = ports_->port(intfId);
  if (port) {
    devices_[intfId] = port.ifIndex;
    add(intfId);
    return;
  }
  auto const device = devices_.extract(intfId);
  if (device.empty()) return;
  // A device that lives on, under another name, is no longer the port that these settings were meant for.
  if (netlink_.link(device.mapped()) != nullptr) {
    settings_.deviceDel(device.mapped());
  } else {
    settings_.forget(device.mapped());
  }
}

void ApplyQueue::handlePass() {
  for (int i = 0; i < portsPerPass && !waiting_.empty(); ++i) {
    Wire::IntfId const intfId = waiting_.extract(waiting_.begin()).value();
    for (PortApplier* applier : appliers_) {
      // The port is looked up and copied for each applier, since a handler may remove it.
      if (Port const port = ports_->port(intfId)) applier->apply(intfId, port);
    }
  }
  if (!waiting_.empty()) pass_.in(0);
}

void MtuApplier::apply(Wire::IntfId const& intfId, Port const& port) {
  static std::uint32_t const noWish = Kel::makePtr<Interface::IntfConfig>(Wire::IntfId())->mtu();
  Kel::Ptr<Interface::IntfConfig> config = vlanIntfConfigDir_->intfConfig(intfId);
  if (!config) config = ethPhyIntfConfigDir_->intfConfig(intfId);
  if (config && config->mtu() != noWish) {
    settings_.wantedIs(port.ifIndex, mtuItem, std::to_string(config->mtu()));
  } else {
    settings_.wantedDel(port.ifIndex, mtuItem);
  }
}

void Ip6Applier::apply(Wire::IntfId const& intfId, Port const& port) {
  auto const& config = ip6Config_->intf(intfId);
  if (!config || !config->enable() || !config->l3Config() || !l3IntfConfigDir_->intfConfig(intfId)) {
    for (char const* item : {disableIpv6Item, acceptRaDefRtrItem, acceptRaItem, routerSolicitationsItem}) {
      settings_.wantedDel(port.ifIndex, item);
    }
    return;
  }
  // The value is 2 rather than 1: both accept advertisements, but 1 stops doing so once the kernel forwards.
  bool const acceptRa = config->addrSource() == Ip6::AddrSource::routerAdvertisement;
  settings_.wantedIs(port.ifIndex, acceptRaItem, acceptRa ? "2" : "0");
  settings_.wantedIs(port.ifIndex, acceptRaDefRtrItem, config->acceptRaDefRtr() ? "1" : "0");
  // RouterAdvertisements asks, also where the kernel does not, as on a link that was up before.
  settings_.wantedIs(port.ifIndex, routerSolicitationsItem, "0");
  // Last, since it may start the search for routers.
  settings_.wantedIs(port.ifIndex, disableIpv6Item, "0");
}

void LinkModeApplier::apply(Wire::IntfId const& intfId, Port const& port) {
  auto const config = ethPhyIntfConfigDir_->intfConfig(intfId);
  Kel::String const wanted = config ? linkModeText(*config) : "";
  if (wanted.empty()) {
    settings_.wantedDel(port.ifIndex, linkModeItem);
  } else {
    settings_.wantedIs(port.ifIndex, linkModeItem, wanted);
  }
}

void LinkUpApplier::apply(Wire::IntfId const& intfId, Port const& port) {
  if (l3IntfConfigDir_->intfConfig(intfId)) {
    settings_.wantedIs(port.ifIndex, linkUpItem, "1");
  } else {
    settings_.wantedDel(port.ifIndex, linkUpItem);
  }
}

namespace {

Kel::String const itemStart = Kel::String(addressItem) + ":";

}  // namespace

std::set<Wire::IpGenAddrWithMask> AddressApplier::configured(Wire::IntfId const& intfId) const {
  std::set<Wire::IpGenAddrWithMask> result;
  if (!l3IntfConfigDir_->intfConfig(intfId)) return result;
  if (auto const& ip = ipConfig_->ipIntfConfig(intfId); ip && !ip->addrWithMask().address.isZero()) {
    result.insert(ip->addrWithMask());
  }
  if (auto const& ip6 = ip6Config_->intf(intfId)) {
    for (auto const& [address, present] : ip6->addr()) result.insert(address);
  }
  return result;
}

void AddressApplier::apply(Wire::IntfId const& intfId, Port const& port) {
  auto const addresses = configured(intfId);
  std::set<Kel::String> items;
  for (auto const& address : addresses) items.insert(itemStart + address.stringValue());
  auto const before = settings_.wanted(port.ifIndex);
  for (auto const& [item, value] : before) {
    if (item.starts_with(itemStart) && !items.contains(item)) settings_.wantedDel(port.ifIndex, item);
  }
  for (auto const& address : addresses) {
    Kel::String const item = itemStart + address.stringValue();
    // The kernel drops IPv6 addresses when the link is taken down.
    bool const dropped = before.contains(item) && !netlink_.addresses(port.ifIndex).contains(address);
    if (!dropped) {
      settings_.wantedIs(port.ifIndex, item, "present");
    } else if (port.linkUp) {
      settings_.renew(port.ifIndex, item);
    }
  }
}

ConfigFollower::ConfigFollower(Entities const& entities, ApplyQueue& queue)
    : add_([&queue](Wire::IntfId const& intfId) { queue.add(intfId); }),
      ports_(entities.ethPhyIntfConfigDir, &Interface::AllEthPhyIntfConfigDir::intfConfig,
             &Interface::AllEthPhyIntfConfigDir::NotifieeConst::onIntfConfig, add_),
      vlans_(entities.vlanIntfConfigDir, &Interface::VlanIntfConfigDir::intfConfig,
             &Interface::VlanIntfConfigDir::NotifieeConst::onIntfConfig, add_),
      l3_(entities.l3IntfConfigDir, &L3::Intf::ConfigDir::intfConfig,
          &L3::Intf::ConfigDir::NotifieeConst::onIntfConfig, add_),
      ip_(entities.ipConfig, &Ip::Config::ipIntfConfig, &Ip::Config::NotifieeConst::onIpIntfConfig, add_),
      ip6_(entities.ip6Config, &Ip6::Config::intf, &Ip6::Config::NotifieeConst::onIntf, add_) {}

}  // namespace Linux
