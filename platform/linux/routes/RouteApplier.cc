#include "platform/linux/routes/RouteApplier.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/kel/Trace.h"
#include "platform/linux/Warnings.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

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
  auto present = kernel_.read();
  if (!present) return pass_.in(readAgainDelay);
  for (auto const& [prefix, hops] : *present) {
    if (!routes.contains(prefix)) kernel_.remove(prefix);
  }
  std::erase_if(refusals_, [&](auto const& refusal) { return !routes.contains(refusal.first); });
  for (auto const& [prefix, vias] : routes) handleRefusal(prefix, install(prefix, vias, (*present)[prefix]));
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
      refuse(hop, "there is no port " + Grammar::printable(via.intf.stringValue()));
      continue;
    }
    all.insert(hop);
    if (findHop(present, hop) != nullptr) good.insert(hop);
  }
  bool exists = !present.empty();
  auto const set = [&](NextHops const& hops) {
    int const error = exists ? kernel_.replace(prefix, hops) : kernel_.add(prefix, hops);
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
