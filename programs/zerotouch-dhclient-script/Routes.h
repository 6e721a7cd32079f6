// The routers and static routes of a DHCPv4 answer.
#pragma once

#include <vector>

#include "platform/model/values/Wire.h"
#include "programs/zerotouch-dhclient-script/Complaints.h"
#include "programs/zerotouch-dhclient-script/Environment.h"

namespace Hook {

struct Routes {
  struct Route {
    Wire::IpAddrWithMask prefix;
    Wire::IpAddr nextHop;
  };
  std::vector<Route> routes;
  std::vector<Wire::IpAddr> gateways;  // next hops of the default route
};

// Classless static routes (RFC 3442) stand for all the others; where none of them is usable, it is as if they
// had not been sent. Otherwise the gateways are the routers, then the next hops of static routes (RFC 2132)
// to everywhere.
Routes routesOf(Environment const& environment, Complaints& complaints);

}  // namespace Hook
