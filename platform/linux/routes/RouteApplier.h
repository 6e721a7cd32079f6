// Brings the configured static routes to the kernel.
//
// The kernel refuses a next hop that it cannot reach yet (no address, link down), and drops routes with their
// link. So the routes are looked at again whenever a link or an address changes. A route with next hops that
// are refused uses the others.
#pragma once

#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/linux/Entities.h"
#include "platform/linux/Warnings.h"
#include "platform/linux/links/Ports.h"
#include "platform/linux/routes/KernelRoutes.h"

namespace Linux {

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
  void handleRefusal(Wire::IpAddrWithMask const& prefix, Kel::String const& text);
  void complain();

  Kel::Ptr<Routing::RouteList const> routeList_;
  Netlink& netlink_;
  KernelRoutes kernel_;
  Kel::Ptr<Ports const> ports_;
  Dropped dropped_;
  std::map<Wire::IpAddrWithMask, Refusal> refusals_;
  bool mayBePresent_ = false;  // whether the kernel may have routes of ours
  Kel::Alarm pass_{[this] { apply(); }};
  Kel::Alarm complaint_{[this] { complain(); }};
  Kel::EntryReactors<Wire::IpAddrWithMask> routes_;
};

}  // namespace Linux
