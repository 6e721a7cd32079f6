// The ports and port-channels of the platform: what is watched of each, and what a run has configured on
// them.
#pragma once

#include "platform/kel/Reactor.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// Holds the reactors on all ports and port-channels, and remembers which of them changed while the view of
// the interfaces was frozen.
class ZeroTouchSm::Ports {
 public:
  // The state machine must outlive the object, and is its owner.
  explicit Ports(ZeroTouchSm& sm);
  ~Ports();

  // To be called when an entry of the platform's directory has come, was replaced or has gone.
  void ethPhyIntfStatusIs(Wire::IntfId const& intfId);
  void ethLagIntfStatusIs(Wire::IntfId const& intfId);
  // To be called when a run starts.
  void handleRunStart();

  // Has the interface looked at on the next entry to a state in which the view follows the platform.
  void skipEthPhy(Wire::IntfId const& intfId) { skippedEthPhy_.insert(intfId); }
  void skipLag(Wire::IntfId const& intfId) { skippedLag_.insert(intfId); }
  void lookAtSkipped();

  // Makes the LLDP watch of a port, or drops it, as the platform opens and closes the port's packet socket.
  void reconcileLldpWatch(Kel::Ptr<IntfStatus> const& record);
  void lldpWatchDel(Kel::Ptr<IntfStatus> const& record);

 private:
  class KelEthPhyIntfStatus;

  void handleEthLagIntf(Wire::IntfId const& intfId);

  ZeroTouchSm& sm_;
  std::map<Wire::IntfId, Kel::Ptr<KelEthPhyIntfStatus>> ethPhyIntfStatus_;
  std::map<Wire::IntfId, Kel::Reactor> ethLagIntfStatus_;
  std::set<Wire::IntfId> skippedEthPhy_;
  std::set<Wire::IntfId> skippedLag_;
};

// Exists for every port of the platform's directory, whatever the state of provisioning. Keeps the pool of
// ports whose speed is left alone: those with a link, for 120 seconds after it came up, and those that are
// not active.
class ZeroTouchSm::Ports::KelEthPhyIntfStatus : public Interface::EthPhyIntfStatus::NotifieeConst {
 public:
  KelEthPhyIntfStatus(Kel::Ptr<Interface::EthPhyIntfStatus const> const& port, ZeroTouchSm& sm);

  void onDeviceName() override;
  void onForwardingModel() override { handleForwardingModel(); }
  void onLinkStatus() override { handleLinkAndActiveStatus(intfId()); }
  void onActive() override { handleLinkAndActiveStatus(intfId()); }
  void onLinkModeCapabilities() override { handleLinkModeCapabilities(intfId()); }
  void onAutonegCapability() override { handleLinkModeCapabilities(intfId()); }

  void handleInitialized(Wire::IntfId const& intfId);
  void handleLinkAndActiveStatus(Wire::IntfId const& intfId);
  void handleLinkActiveTimeout(Wire::IntfId const& intfId);
  void handleRunStart();
  void handleForwardingModel();
  void handleLinkModeCapabilities(Wire::IntfId const& intfId);

 private:
  Wire::IntfId const& intfId() const { return port_->intfId(); }
  bool canRunAt10GAnd40G(Wire::IntfId const& intfId) const;

  Kel::Ptr<Interface::EthPhyIntfStatus const> port_;
  ZeroTouchSm& sm_;
  Kel::Alarm intfLinkActiveClock_;
};

// What a run writes into the configuration of interfaces, and takes back at its end. Entries that were there
// before are never removed.
class ZeroTouchSm::PortConfig {
 public:
  // The state machine must outlive the object, and is its owner.
  explicit PortConfig(ZeroTouchSm& sm) : sm_(sm) {}

  // Makes an interface routed, with IPv6 and router advertisements. IPv4 addresses come with the DHCP answer.
  void layer3Is(Wire::IntfId const& intfId);
  // Removes what this run has made for an interface that has gone. False when the identity is applied to it:
  // it needs the entries until it is taken back.
  bool layer3Del(Wire::IntfId const& intfId);
  void layer3DelAll();

  // The entries of an interface, made when they are missing and joined to its layer-3 entry.
  Kel::Ptr<Ip::IpIntfConfig> ipIntfConfigIs(Wire::IntfId const& intfId);
  Kel::Ptr<Ip6::IntfConfig> ip6IntfConfigIs(Wire::IntfId const& intfId);

  void linkModeIs(Wire::IntfId const& intfId, Interface::EthLinkMode mode, bool autoneg);
  // Every port whose speed this run has set gets its default speed again.
  void linkModeDelAll();

 private:
  Kel::Ptr<L3::Intf::Config> l3IntfConfigIs(Wire::IntfId const& intfId);

  ZeroTouchSm& sm_;
  // The interfaces whose entries this run has made.
  std::set<Wire::IntfId> ipMade_;
  std::set<Wire::IntfId> ip6Made_;
  std::set<Wire::IntfId> l3Made_;
  // The ports whose speed it has set, and whether it has made their entries.
  std::map<Wire::IntfId, bool> speedSet_;
};

// Whether the interface is a management one, and those are to be left alone.
bool ignoredAsManagement(Kel::String const& intfName);

// Whether the kernel has IPv6 switched on for a device; false when it cannot be told.
bool isIpv6Enabled(Kel::String const& kernelIntfName);

}  // namespace ZeroTouch
