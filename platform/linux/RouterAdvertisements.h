// Keeps RouterAdvt::RaPacketStatus true: which ports hear a router, and what it says of DHCPv6.
//
// A port takes part while its link is up. Once it has a usable link-local address, routers are solicited: at
// most three times, 4 s apart, until one answers (RFC 4861, section 6.3.7). Its record is there while an
// advertisement is in force and the link-local address is usable, since DHCPv6 clients cannot run before. It
// shows the last advertisement; one with a lifetime of 0 ends it if it comes from the router that sent the
// last.
#pragma once

#include <map>

#include "platform/linux/Ports.h"
#include "platform/linux/RouterDiscovery.h"
#include "platform/model/routeradvt.h"

namespace Linux {

class RouterAdvertisements {
 public:
  RouterAdvertisements(Kel::Ptr<Ports const> ports, Kel::Ptr<RouterAdvt::RaPacketStatus> status);
  ~RouterAdvertisements();
  RouterAdvertisements(RouterAdvertisements const&) = delete;
  RouterAdvertisements& operator=(RouterAdvertisements const&) = delete;

 private:
  class PortsReactor;
  class Listener;

  void handlePort(Wire::IntfId const& intfId);
  void handleAdvertisement(int ifIndex, Wire::Ip6Addr const& router,
                           RouterAdvertisement const& advertisement);

  Kel::Ptr<Ports const> ports_;
  Kel::Ptr<RouterAdvt::RaPacketStatus> status_;
  RouterDiscovery discovery_;
  std::map<Wire::IntfId, Kel::Ptr<Listener>> listeners_;  // of the ports whose link is up
  Kel::Ptr<PortsReactor> portsReactor_;
};

}  // namespace Linux
