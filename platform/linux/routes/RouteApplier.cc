#include "platform/linux/routes/RouteApplier.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <netlink/msg.h>
#include <netlink/route/route.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "platform/kel/Format.h"
#include "platform/kel/Trace.h"
#include "platform/linux/Warnings.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

namespace {

struct PutRoute {
  void operator()(rtnl_route* route) const { rtnl_route_put(route); }
};
using RoutePtr = std::unique_ptr<rtnl_route, PutRoute>;

struct PutAddress {
  void operator()(nl_addr* address) const { nl_addr_put(address); }
};
using AddressPtr = std::unique_ptr<nl_addr, PutAddress>;

AddressPtr toKernel(Wire::IpAddr const& address, int prefixLength = 32) {
  std::uint32_t const bytes = htonl(address.value);
  AddressPtr result(nl_addr_build(AF_INET, &bytes, sizeof bytes));
  if (!result) throw std::bad_alloc();
  nl_addr_set_prefixlen(result.get(), prefixLength);
  return result;
}

// 0.0.0.0 when there is none, or it is of another family.
Wire::IpAddr fromKernel(nl_addr* address) {
  std::uint32_t bytes = 0;
  if (address == nullptr || nl_addr_get_len(address) != sizeof bytes) return {};
  std::memcpy(&bytes, nl_addr_get_binary_addr(address), sizeof bytes);
  return {ntohl(bytes)};
}

RoutePtr newRoute(Wire::IpAddrWithMask const& prefix, NextHops const& hops) {
  RoutePtr route(rtnl_route_alloc());
  if (!route) throw std::bad_alloc();
  rtnl_route_set_family(route.get(), AF_INET);
  rtnl_route_set_table(route.get(), RT_TABLE_MAIN);
  rtnl_route_set_protocol(route.get(), KernelRoutes::protocol);
  rtnl_route_set_priority(route.get(), KernelRoutes::metric);
  rtnl_route_set_type(route.get(), RTN_UNICAST);
  rtnl_route_set_dst(route.get(), toKernel(prefix.address, prefix.maskLength).get());
  bool allOnLink = true;
  for (NextHop const& hop : hops) {
    rtnl_nexthop* const next = rtnl_route_nh_alloc();
    if (next == nullptr) throw std::bad_alloc();
    if (!hop.gateway.isZero()) rtnl_route_nh_set_gateway(next, toKernel(hop.gateway).get());
    if (hop.ifIndex != 0) rtnl_route_nh_set_ifindex(next, hop.ifIndex);
    // With a device, the gateway is on its link, whatever the addresses there say.
    if (hop.ifIndex != 0 && !hop.gateway.isZero()) rtnl_route_nh_set_flags(next, RTNH_F_ONLINK);
    rtnl_route_add_nexthop(route.get(), next);
    allOnLink = allOnLink && hop.gateway.isZero();
  }
  rtnl_route_set_scope(route.get(), !hops.empty() && allOnLink ? RT_SCOPE_LINK : RT_SCOPE_UNIVERSE);
  return route;
}

int send(Netlink& netlink, RoutePtr const& route, int flags) {
  nl_msg* message = nullptr;
  int const error = rtnl_route_build_add_request(route.get(), flags, &message);
  return error < 0 ? EINVAL : netlink.change(message);
}

nl_msg* dumpRequest() {
  nl_msg* const message = nlmsg_alloc_simple(RTM_GETROUTE, NLM_F_DUMP);
  if (message == nullptr) throw std::bad_alloc();
  // A kernel that applies these filters leaves out the routes of others.
  rtmsg header{};
  header.rtm_family = AF_INET;
  header.rtm_protocol = KernelRoutes::protocol;
  header.rtm_table = RT_TABLE_MAIN;
  nlmsg_append(message, &header, sizeof header, NLMSG_ALIGNTO);
  return message;
}

bool isOurs(rtnl_route* route) {
  return rtnl_route_get_family(route) == AF_INET && rtnl_route_get_table(route) == RT_TABLE_MAIN &&
         rtnl_route_get_protocol(route) == KernelRoutes::protocol &&
         rtnl_route_get_priority(route) == KernelRoutes::metric;
}

}  // namespace

std::optional<std::map<Wire::IpAddrWithMask, NextHops>> KernelRoutes::read() {
  std::map<Wire::IpAddrWithMask, NextHops> result;
  auto const take = [&result](nlmsghdr* message) {
    rtnl_route* parsed = nullptr;
    if (message->nlmsg_type != RTM_NEWROUTE || rtnl_route_parse(message, &parsed) < 0) return;
    RoutePtr const route(parsed);
    if (!isOurs(parsed)) return;
    nl_addr* const destination = rtnl_route_get_dst(parsed);
    auto const length = static_cast<std::uint8_t>(destination ? nl_addr_get_prefixlen(destination) : 0);
    NextHops& hops = result[{fromKernel(destination), length}];
    for (int i = 0; i < rtnl_route_get_nnexthops(parsed); ++i) {
      rtnl_nexthop* const next = rtnl_route_nexthop_n(parsed, i);
      hops.insert({fromKernel(rtnl_route_nh_get_gateway(next)), rtnl_route_nh_get_ifindex(next)});
    }
  };
  // Reading fails when the routes change meanwhile, and is repeated.
  constexpr int attempts = 3;
  for (int i = 0; i < attempts; ++i) {
    result.clear();
    if (netlink_.read(dumpRequest(), take)) return result;
  }
  return std::nullopt;
}

int KernelRoutes::add(Wire::IpAddrWithMask const& prefix, NextHops const& hops) {
  return send(netlink_, newRoute(prefix, hops), NLM_F_CREATE | NLM_F_EXCL);
}

int KernelRoutes::replace(Wire::IpAddrWithMask const& prefix, NextHops const& hops) {
  return send(netlink_, newRoute(prefix, hops), NLM_F_CREATE | NLM_F_REPLACE);
}

int KernelRoutes::remove(Wire::IpAddrWithMask const& prefix) {
  RoutePtr const route = newRoute(prefix, {});
  rtnl_route_set_scope(route.get(), RT_SCOPE_NOWHERE);  // any
  nl_msg* message = nullptr;
  int const error = rtnl_route_build_del_request(route.get(), 0, &message);
  return error < 0 ? EINVAL : netlink_.change(message);
}

unsigned KernelRoutes::removeAll() {
  unsigned count = 0;
  auto const present = read();
  if (!present) return count;
  for (auto const& [prefix, hops] : *present) count += remove(prefix) == 0 ? 1 : 0;
  return count;
}

namespace {

Kel::TraceFacility trace("RouteApplier");

// How long a next hop may be refused before there is a warning, in seconds: an address comes a moment after
// the routes that need it, and links flap.
constexpr Kel::Seconds grace = 3;
constexpr Kel::Seconds readAgainDelay = 1;

// The next hop of `present` that is `hop`, whose device may have been left to the kernel.
NextHop const* findHop(NextHops const& present, NextHop const& hop) {
  auto const found = std::ranges::find_if(present, [&](NextHop const& other) {
    return other.gateway == hop.gateway && (hop.ifIndex == 0 || other.ifIndex == hop.ifIndex);
  });
  return found == present.end() ? nullptr : &*found;
}

}  // namespace

RouteApplier::RouteApplier(Entities const& entities, Netlink& netlink, Kel::Ptr<Ports const> ports)
    : routeList_(entities.routingConfig->routeList()),
      netlink_(netlink),
      kernel_(netlink),
      ports_(std::move(ports)),
      takeovers_(netlink, ports_),
      routes_(routeList_, &Routing::RouteList::route, &Routing::RouteList::NotifieeConst::onRoute,
              [this](Wire::IpAddrWithMask const&) {
                mayBePresent_ = true;
                soon();
              }) {
  netlink_.listenerIs(this);
}

RouteApplier::~RouteApplier() { netlink_.listenerDel(this); }

void RouteApplier::soon() {
  if (mayBePresent_) pass_.in(0);
}

void RouteApplier::apply() {
  auto const routes = wanted();
  takeovers_.look(routes);
  auto present = kernel_.read();
  if (!present) return pass_.in(readAgainDelay);
  for (auto const& [prefix, hops] : *present) {
    if (!routes.contains(prefix)) kernel_.remove(prefix);
  }
  std::erase_if(refusals_, [&](auto const& refusal) { return !routes.contains(refusal.first); });
  // Gateways may be behind destinations that are on a link themselves.
  for (bool const onLink : {true, false}) {
    for (auto const& [prefix, vias] : routes) {
      if (vias.begin()->hop.isZero() == onLink)
        handleRefusal(prefix, install(prefix, vias, (*present)[prefix]));
    }
  }
  mayBePresent_ = !routes.empty();
}

std::map<Wire::IpAddrWithMask, RouteApplier::Vias> RouteApplier::wanted() {
  std::map<Wire::IpAddrWithMask, Vias> result;
  dropped_.begin();
  for (auto const& [prefix, route] : routeList_->route()) {
    if (Kel::String const fault = Grammar::prefixFault(prefix); !fault.empty()) {
      dropped_.add("route", prefix.stringValue(), fault);
      continue;
    }
    for (auto const& [via, used] : route->via()) {
      if (!used) continue;
      bool const isOnLink = via.hop.isZero() && via.intf;
      if (Kel::String const fault = isOnLink ? "" : Grammar::hostFault(via.hop); !fault.empty()) {
        dropped_.add("next hop", prefix.stringValue() + " via " + via.stringValue(), fault);
      } else {
        result[Grammar::withoutHostBits(prefix)].insert(via);
      }
    }
  }
  return result;
}

// Returns the next hops that are not in use with the reasons; "" when all are in use.
Kel::String RouteApplier::install(Wire::IpAddrWithMask const& prefix, Vias const& vias,
                                  NextHops const& present) {
  NextHops all;
  NextHops good;  // those that the kernel has
  Kel::String refused;
  auto const refuse = [&refused](NextHop const& hop, Kel::String const& reason) {
    refused += (refused.empty() ? "" : ", ") + hop.gateway.stringValue() + " (" + reason + ")";
  };
  for (Routing::Via const& via : vias) {
    NextHop const hop{via.hop, via.intf ? ports_->port(via.intf).ifIndex : 0};
    if (via.intf && hop.ifIndex == 0) {
      refuse(hop, "there is no port " + Kel::printable(via.intf.stringValue(), Kel::longestShown));
      continue;
    }
    all.insert(hop);
    if (findHop(present, hop) != nullptr) good.insert(hop);
  }
  bool exists = !present.empty();
  auto const put = [&](NextHops const& hops) {
    return exists ? kernel_.replace(prefix, hops) : kernel_.add(prefix, hops);
  };
  auto const set = [&](NextHops const& hops) {
    int error = put(hops);
    if (error == ENETUNREACH) error = put(withDevices(hops));
    KEL_TRACE(trace, 5, prefix.stringValue() << " with " << hops.size() << " next hops: " << error);
    exists = exists || error == 0;
    return error;
  };

  bool const asWanted = good.size() == all.size() && present.size() == all.size();
  if (asWanted || (!all.empty() && set(all) == 0)) return refused;
  // Next hops that are no longer wanted are removed even if none of the new ones is accepted.
  if (!good.empty() && good.size() != present.size()) set(good);
  for (NextHop const& hop : all) {
    if (good.contains(hop)) continue;
    NextHops more = good;
    more.insert(hop);
    if (int const error = set(more); error == 0) {
      good = more;
    } else {
      refuse(hop, std::strerror(error));
    }
  }
  if (good.empty() && exists) kernel_.remove(prefix);
  return refused;
}

NextHops RouteApplier::withDevices(NextHops const& hops) const {
  NextHops result;
  int const device = deviceOfOneAddress();
  for (NextHop const& hop : hops) {
    bool const isFar = hop.ifIndex == 0 && !isInANetwork(hop.gateway);
    result.insert({hop.gateway, isFar ? device : hop.ifIndex});
  }
  return result;
}

bool RouteApplier::isInANetwork(Wire::IpAddr const& gateway) const {
  return std::ranges::any_of(netlink_.links(), [&](auto const& link) {
    return std::ranges::any_of(netlink_.addresses(link.first), [&](auto const& entry) {
      if (entry.first.isV6() || entry.first.v4().maskLength == Wire::IpAddr::maxMaskLength) return false;
      auto const network = Grammar::withoutHostBits(entry.first.v4());
      return Grammar::withoutHostBits({gateway, network.maskLength}) == network;
    });
  });
}

int RouteApplier::deviceOfOneAddress() const {
  int result = 0;
  for (Wire::IntfId const& intfId : ports_->port().keys()) {
    int const ifIndex = ports_->port(intfId).ifIndex;
    bool const found = std::ranges::any_of(netlink_.addresses(ifIndex), [](auto const& entry) {
      return !entry.first.isV6() && entry.first.v4().maskLength == Wire::IpAddr::maxMaskLength;
    });
    if (found && result != 0) return 0;
    if (found) result = ifIndex;
  }
  return result;
}

void RouteApplier::handleRefusal(Wire::IpAddrWithMask const& prefix, Kel::String const& text) {
  if (text.empty()) {
    refusals_.erase(prefix);
    return;
  }
  Refusal& refusal = refusals_[prefix];
  if (refusal.text != text) refusal = {text, false};
  if (!refusal.warned) complaint_.in(grace);
}

void RouteApplier::complain() {
  for (auto& [prefix, refusal] : refusals_) {
    if (std::exchange(refusal.warned, true)) continue;
    constexpr std::size_t longest = 400;  // of what may be hundreds of next hops
    bool const cut = refusal.text.size() > longest;
    routeNotInUse.log(prefix.stringValue(), cut ? refusal.text.substr(0, longest) + "..." : refusal.text);
  }
}

}  // namespace Linux
