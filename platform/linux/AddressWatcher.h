// Keeps Ip::Status and Ip6::Status true to the addresses of the ports: those that are in use, hence none that
// is link-local, and none whose uniqueness is still being tested or was disproved (RFC 4862).
#pragma once

#include "platform/linux/Entities.h"
#include "platform/linux/Netlink.h"
#include "platform/linux/Ports.h"

namespace Linux {

class AddressWatcher : private Netlink::Listener {
 public:
  // `netlink` outlives the watcher.
  AddressWatcher(Entities const& entities, Netlink& netlink, Kel::Ptr<Ports const> ports);
  ~AddressWatcher() override;

 private:
  class PortsReactor;

  void onAddresses(int ifIndex) override;
  void handlePort(Wire::IntfId const& intfId);
  void update(Ip::IpIntfStatus& status, Addresses const& addresses) const;
  void update(Ip6::IntfStatus& status, Addresses const& addresses) const;

  Entities entities_;
  Netlink& netlink_;
  Kel::Ptr<Ports const> ports_;
  Kel::Ptr<PortsReactor> portsReactor_;
};

}  // namespace Linux
