// Static routes: the routes of ours in the kernel, and the applier that makes them what is configured.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/linux/Entities.h"
#include "platform/linux/Warnings.h"
#include "platform/linux/links/Netlink.h"
#include "platform/linux/links/Ports.h"
#include "platform/linux/routes/Takeovers.h"

namespace Linux {

struct NextHop {
  Wire::IpAddr gateway;  // 0.0.0.0: none, the destination is on the link itself
  int ifIndex = 0;       // 0 in a request: the kernel finds the device by the gateway

  auto operator<=>(NextHop const&) const = default;
};
using NextHops = std::set<NextHop>;

// The IPv4 routes in the kernel's main table that are ours: those under our own protocol number.
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

// Brings the configured static routes to the kernel.
//
// The kernel refuses a next hop that it cannot reach yet (no address, link down), and drops routes with their
// link. So the routes are looked at again whenever a link or an address changes. A route with next hops that
// are refused uses the others. Where a port has an address without a network (/32), no gateway is in one: the
// kernel is then told that those it cannot reach are on the link of that port, if there is only one.
class RouteApplier : private Netlink::Listener {
 public:
  // `netlink` outlives the applier.
  RouteApplier(Entities const& entities, Netlink& netlink, Kel::Ptr<Ports const> ports);
  ~RouteApplier() override;

  // Removes all of our routes: what this process set, and what an earlier one left. Returns how many.
  unsigned undo() { return kernel_.removeAll(); }

 private:
  using Vias = std::set<Routing::Via>;
  struct Refusal {
    Kel::String text;
    bool warned = false;
  };

  void onLink(int) override { soon(); }
  void onAddresses(int) override { soon(); }
  void soon();
  void apply();
  std::map<Wire::IpAddrWithMask, Vias> wanted();
  Kel::String install(Wire::IpAddrWithMask const& prefix, Vias const& vias, NextHops const& present);
  // The same with that port for gateways in no network.
  NextHops withDevices(NextHops const& hops) const;
  bool isInANetwork(Wire::IpAddr const& gateway) const;
  // The port with an address of mask length 32; 0 when there is none, or several.
  int deviceOfOneAddress() const;
  void handleRefusal(Wire::IpAddrWithMask const& prefix, Kel::String const& text);
  void complain();

  Kel::Ptr<Routing::RouteList const> routeList_;
  Netlink& netlink_;
  KernelRoutes kernel_;
  Kel::Ptr<Ports const> ports_;
  Dropped dropped_;
  Takeovers takeovers_;
  std::map<Wire::IpAddrWithMask, Refusal> refusals_;
  bool mayBePresent_ = false;  // whether the kernel may have routes of ours
  Kel::Alarm pass_{[this] { apply(); }};
  Kel::Alarm complaint_{[this] { complain(); }};
  Kel::EntryReactors<Wire::IpAddrWithMask> routes_;
};

}  // namespace Linux
