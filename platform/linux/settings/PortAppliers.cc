#include "platform/linux/settings/PortAppliers.h"

#include "platform/kel/ActivityManager.h"
#include "platform/linux/settings/SettingKinds.h"

namespace Linux {

namespace {

// A visit that changes everything takes half a millisecond, most of it in the kernel.
constexpr int portsPerPass = 8;

}  // namespace

class ApplyQueue::PortsReactor : public Ports::NotifieeConst {
 public:
  PortsReactor(Kel::Ptr<Ports const> const& ports, ApplyQueue& queue) : NotifieeConst(ports), queue_(queue) {}
  void onPort(Wire::IntfId const& intfId) override { queue_.handlePort(intfId); }

 private:
  ApplyQueue& queue_;
};

class ApplyQueue::Pass : public Kel::Clock::NotifieeConst {
 public:
  explicit Pass(ApplyQueue& queue)
      : NotifieeConst(Kel::activityManager()->config()->clock()), queue_(queue) {}
  void onTime() override { queue_.handlePass(); }

 private:
  ApplyQueue& queue_;
};

ApplyQueue::ApplyQueue(Kel::Ptr<Ports const> ports, Netlink const& netlink, DeviceSettings& settings)
    : ports_(std::move(ports)), netlink_(netlink), settings_(settings) {
  portsReactor_ = Kel::makePtr<PortsReactor>(ports_, *this);
  pass_ = Kel::makePtr<Pass>(*this);
  for (auto const& [intfId, port] : ports_->port()) handlePort(intfId);
}

ApplyQueue::~ApplyQueue() = default;

void ApplyQueue::add(Wire::IntfId const& intfId) {
  waiting_.insert(intfId);
  if (pass_->timeMin() == Kel::never) pass_->timeMinIs(Kel::now());
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
      // Looked up each time: a copy, since a handler may end the port.
      if (Port const port = ports_->port(intfId)) applier->apply(intfId, port);
    }
  }
  if (!waiting_.empty()) pass_->timeMinIs(Kel::now());
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
    for (char const* item : {disableIpv6Item, acceptRaDefRtrItem, acceptRaItem}) {
      settings_.wantedDel(port.ifIndex, item);
    }
    return;
  }
  // 2 and not 1: it means the same while the kernel does not forward, and goes on working once it does.
  bool const acceptRa = config->addrSource() == Ip6::AddrSource::routerAdvertisement;
  settings_.wantedIs(port.ifIndex, acceptRaItem, acceptRa ? "2" : "0");
  settings_.wantedIs(port.ifIndex, acceptRaDefRtrItem, config->acceptRaDefRtr() ? "1" : "0");
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

namespace {

// Any change of these, whatever it is, means another visit to the port.
class MtuReactor : public Interface::IntfConfig::NotifieeConst {
 public:
  MtuReactor(Kel::Ptr<Interface::IntfConfig const> const& config, ApplyQueue& queue)
      : NotifieeConst(config), queue_(queue) {}
  void onMtu() override { queue_.add(notifier().intfId()); }

 private:
  ApplyQueue& queue_;
};

class EthPhyReactor : public Interface::EthPhyIntfConfig::NotifieeConst {
 public:
  EthPhyReactor(Kel::Ptr<Interface::EthPhyIntfConfig const> const& config, ApplyQueue& queue)
      : NotifieeConst(config), queue_(queue) {}
  void onMtu() override { changed(); }
  void onLinkModeLocal() override { changed(); }
  void onAdvertisedModesLocal() override { changed(); }
  void onAdvertisedModesConfiguredLocal() override { changed(); }

 private:
  void changed() { queue_.add(notifier().intfId()); }

  ApplyQueue& queue_;
};

class IpReactor : public Ip::IpIntfConfig::NotifieeConst {
 public:
  IpReactor(Kel::Ptr<Ip::IpIntfConfig const> const& config, ApplyQueue& queue)
      : NotifieeConst(config), queue_(queue) {}
  void onL3Config() override { changed(); }
  void onAddrWithMask() override { changed(); }

 private:
  void changed() { queue_.add(notifier().intfId()); }

  ApplyQueue& queue_;
};

class Ip6Reactor : public Ip6::IntfConfig::NotifieeConst {
 public:
  Ip6Reactor(Kel::Ptr<Ip6::IntfConfig const> const& config, ApplyQueue& queue)
      : NotifieeConst(config), queue_(queue) {}
  void onL3Config() override { changed(); }
  void onEnable() override { changed(); }
  void onAddrSource() override { changed(); }
  void onAcceptRaDefRtr() override { changed(); }
  void onAddr(Wire::Ip6AddrWithMask const&) override { changed(); }

 private:
  void changed() { queue_.add(notifier().intfId()); }

  ApplyQueue& queue_;
};

// Keeps one reactor per entry of a directory.
template <typename Reactor>
class EntryReactors {
 public:
  explicit EntryReactors(ApplyQueue& queue) : queue_(queue) {}

  template <typename Entry>
  void entryIs(Wire::IntfId const& intfId, Kel::Ptr<Entry> const& entry) {
    if (entry) {
      reactors_[intfId] = Kel::makePtr<Reactor>(entry, queue_);
    } else {
      reactors_.erase(intfId);
    }
    queue_.add(intfId);
  }

 private:
  ApplyQueue& queue_;
  std::map<Wire::IntfId, Kel::Ptr<Reactor>> reactors_;
};

// For a directory whose collection is `intfConfig`.
template <typename Dir, typename Reactor>
class IntfConfigDirReactor : public Dir::NotifieeConst {
 public:
  IntfConfigDirReactor(Kel::Ptr<Dir const> const& dir, ApplyQueue& queue)
      : Dir::NotifieeConst(dir), entries_(queue) {
    for (auto const& [intfId, entry] : dir->intfConfig()) entries_.entryIs(intfId, entry);
  }
  void onIntfConfig(Wire::IntfId const& intfId) override {
    entries_.entryIs(intfId, this->notifier().intfConfig(intfId));
  }

 private:
  EntryReactors<Reactor> entries_;
};

class L3DirReactor : public L3::Intf::ConfigDir::NotifieeConst {
 public:
  L3DirReactor(Kel::Ptr<L3::Intf::ConfigDir const> const& dir, ApplyQueue& queue)
      : NotifieeConst(dir), queue_(queue) {
    for (auto const& [intfId, entry] : dir->intfConfig()) queue_.add(intfId);
  }
  void onIntfConfig(Wire::IntfId const& intfId) override { queue_.add(intfId); }

 private:
  ApplyQueue& queue_;
};

class IpDirReactor : public Ip::Config::NotifieeConst {
 public:
  IpDirReactor(Kel::Ptr<Ip::Config const> const& dir, ApplyQueue& queue)
      : NotifieeConst(dir), entries_(queue) {
    for (auto const& [intfId, entry] : dir->ipIntfConfig()) entries_.entryIs(intfId, entry);
  }
  void onIpIntfConfig(Wire::IntfId const& intfId) override {
    entries_.entryIs(intfId, notifier().ipIntfConfig(intfId));
  }

 private:
  EntryReactors<IpReactor> entries_;
};

class Ip6DirReactor : public Ip6::Config::NotifieeConst {
 public:
  Ip6DirReactor(Kel::Ptr<Ip6::Config const> const& dir, ApplyQueue& queue)
      : NotifieeConst(dir), entries_(queue) {
    for (auto const& [intfId, entry] : dir->intf()) entries_.entryIs(intfId, entry);
  }
  void onIntf(Wire::IntfId const& intfId) override { entries_.entryIs(intfId, notifier().intf(intfId)); }

 private:
  EntryReactors<Ip6Reactor> entries_;
};

}  // namespace

ConfigFollower::ConfigFollower(Entities const& entities, ApplyQueue& queue)
    : directoryReactors_{Kel::makePtr<IntfConfigDirReactor<Interface::AllEthPhyIntfConfigDir, EthPhyReactor>>(
                             entities.ethPhyIntfConfigDir, queue),
                         Kel::makePtr<IntfConfigDirReactor<Interface::VlanIntfConfigDir, MtuReactor>>(
                             entities.vlanIntfConfigDir, queue),
                         Kel::makePtr<L3DirReactor>(entities.l3IntfConfigDir, queue),
                         Kel::makePtr<IpDirReactor>(entities.ipConfig, queue),
                         Kel::makePtr<Ip6DirReactor>(entities.ip6Config, queue)} {}

}  // namespace Linux
