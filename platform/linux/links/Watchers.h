// The watchers of links and addresses, which keep the status entities of ports true to the kernel.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "platform/kel/Reactor.h"
#include "platform/linux/Entities.h"
#include "platform/linux/links/Netlink.h"
#include "platform/linux/links/Ports.h"

namespace Linux {

// Keeps the status directories of interfaces, the registry of ports and the list of kernel devices true to
// the links.
//
// Which device is which port follows from its present name. A device that is renamed is another port from
// then on, unless the rules for names give it the same name again; a device that comes back is the same port
// again.
class LinkWatcher : private Netlink::Listener {
 public:
  // `netlink` outlives the watcher.
  LinkWatcher(Entities const& entities, PortSelection selection, Netlink& netlink, Kel::Ptr<Ports> ports);
  ~LinkWatcher() override;

 private:
  struct Tracked {
    Wire::IntfId intfId;
    PortKind kind;
    Kel::Ptr<Interface::IntfStatus> status;
  };

  void onLink(int ifIndex) override;
  void onAddresses(int ifIndex) override;
  void handleL3Config(Wire::IntfId const& intfId);

  void noteDevice(int ifIndex, Link const* link);
  Wire::IntfId idOf(Link const& link) const;
  bool claim(Wire::IntfId const& intfId, Link const& link);
  void add(Wire::IntfId const& intfId, PortKind kind, Link const& link);
  void announce(Tracked const& tracked);
  void remove(int ifIndex);
  void update(Interface::IntfStatus& status, Wire::IntfId const& intfId, Link const& link) const;
  void updateEthernet(Interface::EthIntfStatus& status, Link const& link) const;
  void updatePort(Tracked const& tracked, Link const& link);
  Interface::IntfForwardingModel forwardingModel(Wire::IntfId const& intfId, Link const& link) const;

  Entities entities_;
  PortSelection selection_;
  Netlink& netlink_;
  Kel::Ptr<Ports> ports_;
  Kel::Reactor l3Reactor_;
  std::map<int, Kel::String> deviceNames_;  // of every device there is
  std::map<int, Tracked> tracked_;
  std::map<Wire::IntfId, int> owners_;  // whose name it is
  std::set<int> nameless_;              // devices that would be ports, were their name not taken
};

// Keeps Ip::Status and Ip6::Status true to the addresses of the ports: those that are in use, hence none that
// is link-local, and none whose uniqueness is still being tested or was disproved (RFC 4862).
class AddressWatcher : private Netlink::Listener {
 public:
  // `netlink` outlives the watcher.
  AddressWatcher(Entities const& entities, Netlink& netlink, Kel::Ptr<Ports const> ports);
  ~AddressWatcher() override;

 private:
  void onAddresses(int ifIndex) override;
  void handlePort(Wire::IntfId const& intfId);
  void update(Ip::IpIntfStatus& status, Addresses const& addresses) const;
  void update(Ip6::IntfStatus& status, Addresses const& addresses) const;

  Entities entities_;
  Netlink& netlink_;
  Kel::Ptr<Ports const> ports_;
  Kel::Reactor portsReactor_;
};

}  // namespace Linux
