// The IPv4 routes in the kernel's main table that are ours: those under our own protocol number.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "platform/linux/links/Netlink.h"

namespace Linux {

struct NextHop {
  Wire::IpAddr gateway;  // 0.0.0.0: none, the destination is on the link itself
  int ifIndex = 0;       // 0 in a request: the kernel finds the device by the gateway

  auto operator<=>(NextHop const&) const = default;
};
using NextHops = std::set<NextHop>;

class KernelRoutes {
 public:
  // The protocol number of our routes, which neither rtnetlink(7) nor iproute2's rt_protos names.
  static constexpr std::uint8_t protocol = 142;
  // A prefix and a metric make a route unique in its table. With one that nobody else uses, a route of
  // somebody else to the same prefix can neither be in the way nor be replaced; where it has the better
  // metric (0, as routes that are set by hand have by default), it goes on to be used.
  static constexpr std::uint32_t metric = 1;

  explicit KernelRoutes(Netlink& netlink) : netlink_(netlink) {}

  // By prefix. Nothing when the kernel does not tell.
  std::optional<std::map<Wire::IpAddrWithMask, NextHops>> read();
  // These return 0 or the kernel's error number. One route with all next hops (multipath); a refused change
  // leaves what was there.
  int add(Wire::IpAddrWithMask const& prefix, NextHops const& hops);
  int replace(Wire::IpAddrWithMask const& prefix, NextHops const& hops);
  int remove(Wire::IpAddrWithMask const& prefix);
  // Removes all of our routes and returns how many there were.
  unsigned removeAll();

 private:
  Netlink& netlink_;
};

}  // namespace Linux
