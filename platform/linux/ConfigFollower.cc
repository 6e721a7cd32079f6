#include "platform/linux/ConfigFollower.h"

namespace Linux {

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
