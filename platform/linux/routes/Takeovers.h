// Routes of a DHCP server that take more than an answer for one port should. They are applied as they were
// sent, and told of.
#pragma once

#include <map>
#include <set>
#include <vector>

#include "platform/linux/links/Netlink.h"
#include "platform/linux/links/Ports.h"

namespace Linux {

// Warns, with the port's name, when the routes by a port cover all addresses without being a default route
// (as 0.0.0.0/1 and 128.0.0.0/1 do), since they win against every default route; and when one of them covers
// addresses of the management network. That is the network of each port whose name begins with "Management",
// and of each device that is no port; routes by that port or device itself are its own.
class Takeovers {
 public:
  using Routes = std::map<Wire::IpAddrWithMask, std::set<Routing::Via>>;

  // `netlink` outlives this.
  Takeovers(Netlink const& netlink, Kel::Ptr<Ports const> ports)
      : netlink_(netlink), ports_(std::move(ports)) {}

  // To be called with all routes there are: warns of each takeover once, for as long as it is there. What
  // cannot be told yet, since the port has no address, is told by a later look.
  void look(Routes const& routes);

 private:
  // The addresses from the first to the last.
  struct Range {
    std::uint32_t first;
    std::uint32_t last;
  };
  struct Network {
    int ifIndex;
    bool isManagement;
    Range range;
    Kel::String text;  // "10.0.0.0/24"
  };

  static Range rangeOf(Wire::IpAddrWithMask const& prefix);
  static bool coverAll(std::vector<Range> ranges);
  std::vector<Network> networks() const;
  int deviceOf(Routing::Via const& via, std::vector<Network> const& networks) const;

  Netlink const& netlink_;
  Kel::Ptr<Ports const> ports_;
  std::set<std::pair<int, Kel::String>> told_;  // the device, and what it takes
};

}  // namespace Linux
