// What is configured on ports, and how it comes to the kernel: ConfigFollower sees that a port's
// configuration has changed, ApplyQueue visits the port on a later pass of the loop, and one PortApplier for
// each aspect hands to DeviceSettings what its entities want.
#pragma once

#include <map>
#include <set>
#include <vector>

#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/linux/Entities.h"
#include "platform/linux/links/Netlink.h"
#include "platform/linux/links/Ports.h"
#include "platform/linux/settings/DeviceSettings.h"

namespace Linux {

// One aspect of a port's configuration.
class PortApplier {
 public:
  virtual ~PortApplier() = default;
  // Brings the port to what its entities say, whatever it is like now. Called again after every change of one
  // of the port's entities or of the port itself.
  virtual void apply(Wire::IntfId const& intfId, Port const& port) = 0;
};

// Carries configuration to the kernel: not within the call that changed an entity, but on later passes of the
// loop, some ports per pass, so that setting up thousands of ports holds nobody up, and several changes of
// one port cost one visit.
class ApplyQueue {
 public:
  ApplyQueue(Kel::Ptr<Ports const> ports, Netlink const& netlink, DeviceSettings& settings);
  ApplyQueue(ApplyQueue const&) = delete;
  ApplyQueue& operator=(ApplyQueue const&) = delete;

  // Appliers run in the order in which they were added; each outlives the queue.
  void applierIs(PortApplier* applier) { appliers_.push_back(applier); }
  // Has the port visited on a later pass. A port that appears or changes is visited without this call.
  void add(Wire::IntfId const& intfId);

 private:
  void handlePort(Wire::IntfId const& intfId);
  void handlePass();

  Kel::Ptr<Ports const> ports_;
  Netlink const& netlink_;
  DeviceSettings& settings_;
  std::vector<PortApplier*> appliers_;
  std::set<Wire::IntfId> waiting_;
  std::map<Wire::IntfId, int> devices_;  // the kernel index behind each port
  Kel::Reactor portsReactor_;
  Kel::Alarm pass_{[this] { handlePass(); }};
};

// Sets the MTU of ports and VLAN interfaces.
//
// The default of the configuration means no wish: the device keeps, or gets back, the MTU that it was found
// with.
class MtuApplier : public PortApplier {
 public:
  MtuApplier(Entities const& entities, DeviceSettings& settings)
      : ethPhyIntfConfigDir_(entities.ethPhyIntfConfigDir),
        vlanIntfConfigDir_(entities.vlanIntfConfigDir),
        settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  Kel::Ptr<Interface::AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir_;
  Kel::Ptr<Interface::VlanIntfConfigDir const> vlanIntfConfigDir_;
  DeviceSettings& settings_;
};

// Turns IPv6 on for ports whose IPv6 configuration says so, and decides what router advertisements may do
// there.
//
// A configuration that is not enabled, or that belongs to no layer-3 configuration, wants nothing: the port
// is left, or put back, as it was found.
class Ip6Applier : public PortApplier {
 public:
  Ip6Applier(Entities const& entities, DeviceSettings& settings)
      : l3IntfConfigDir_(entities.l3IntfConfigDir), ip6Config_(entities.ip6Config), settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  Kel::Ptr<L3::Intf::ConfigDir const> l3IntfConfigDir_;
  Kel::Ptr<Ip6::Config const> ip6Config_;
  DeviceSettings& settings_;
};

// Sets the speed of physical ports.
//
// The default mode means the speed that the port was found at.
class LinkModeApplier : public PortApplier {
 public:
  LinkModeApplier(Entities const& entities, DeviceSettings& settings)
      : ethPhyIntfConfigDir_(entities.ethPhyIntfConfigDir), settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  Kel::Ptr<Interface::AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir_;
  DeviceSettings& settings_;
};

// Brings up the link of every port that has a layer-3 configuration.
class LinkUpApplier : public PortApplier {
 public:
  LinkUpApplier(Entities const& entities, DeviceSettings& settings)
      : l3IntfConfigDir_(entities.l3IntfConfigDir), settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  Kel::Ptr<L3::Intf::ConfigDir const> l3IntfConfigDir_;
  DeviceSettings& settings_;
};

// Puts the configured addresses on ports. An address that is on the port already belongs to somebody else and
// stays.
class AddressApplier : public PortApplier {
 public:
  AddressApplier(Entities const& entities, Netlink const& netlink, DeviceSettings& settings)
      : l3IntfConfigDir_(entities.l3IntfConfigDir),
        ipConfig_(entities.ipConfig),
        ip6Config_(entities.ip6Config),
        netlink_(netlink),
        settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  std::set<Wire::IpGenAddrWithMask> configured(Wire::IntfId const& intfId) const;

  Kel::Ptr<L3::Intf::ConfigDir const> l3IntfConfigDir_;
  Kel::Ptr<Ip::Config const> ipConfig_;
  Kel::Ptr<Ip6::Config const> ip6Config_;
  Netlink const& netlink_;
  DeviceSettings& settings_;
};

// Queues a port whenever one of its configuration entities appears, changes or is withdrawn.
class ConfigFollower {
 public:
  // `queue` outlives the follower.
  ConfigFollower(Entities const& entities, ApplyQueue& queue);

 private:
  using Entries = Kel::EntryReactors<Wire::IntfId>;

  std::function<void(Wire::IntfId const&)> const add_;
  Entries ports_;
  Entries vlans_;
  Entries l3_;
  Entries ip_;
  Entries ip6_;
};

}  // namespace Linux
