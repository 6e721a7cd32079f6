#include "platform/linux/routes/Takeovers.h"

#include <net/if.h>

#include <algorithm>
#include <utility>

#include "platform/linux/Warnings.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

namespace {

constexpr char const* everything = "all addresses: they win against every default route";

}  // namespace

void Takeovers::look(Routes const& routes) {
  std::vector<Network> const all = networks();
  std::map<int, std::vector<Range>> byDevice;
  std::map<std::pair<int, Kel::String>, Kel::String> found;  // as in told_, with the text of the warning
  for (auto const& [prefix, vias] : routes) {
    if (prefix.maskLength == 0) continue;
    Range const range = rangeOf(prefix);
    for (Routing::Via const& via : vias) {
      int const device = deviceOf(via, all);
      if (device == 0) continue;
      byDevice[device].push_back(range);
      for (Network const& network : all) {
        bool const overlaps = range.first <= network.range.last && network.range.first <= range.last;
        if (!network.isManagement || network.ifIndex == device || !overlaps) continue;
        found.try_emplace({device, network.text}, "addresses of the management network " + network.text +
                                                      " of " + ports_->describe(network.ifIndex) + ", by " +
                                                      prefix.stringValue());
      }
    }
  }
  for (auto const& [device, ranges] : byDevice) {
    if (coverAll(ranges)) found.try_emplace({device, everything}, everything);
  }
  for (auto const& [key, text] : found) {
    if (!told_.contains(key)) routesTakeOver.log(ports_->describe(key.first), text);
  }
  told_.clear();
  for (auto const& [key, text] : found) told_.insert(key);
}

Takeovers::Range Takeovers::rangeOf(Wire::IpAddrWithMask const& prefix) {
  std::uint32_t const hostBits = prefix.maskLength < 32 ? UINT32_MAX >> prefix.maskLength : 0;
  return {prefix.address.value & ~hostBits, prefix.address.value | hostBits};
}

// All addresses are those that a host can have: 1.0.0.0 to 223.255.255.255, without 127.0.0.0/8.
bool Takeovers::coverAll(std::vector<Range> ranges) {
  constexpr std::uint32_t loopback = 127;
  std::uint64_t next = 0x0100'0000;  // the first address that is not covered by the ranges so far
  std::ranges::sort(ranges, {}, &Range::first);
  for (Range const& range : ranges) {
    if (range.first > next) return false;
    next = std::max(next, std::uint64_t{range.last} + 1);
    if (next >> 24 == loopback) next = 0x8000'0000;
  }
  return next >= 0xe000'0000;
}

std::vector<Takeovers::Network> Takeovers::networks() const {
  std::vector<Network> result;
  for (auto const& [ifIndex, link] : netlink_.links()) {
    if ((link.flags & IFF_LOOPBACK) != 0) continue;
    Wire::IntfId const port = ports_->intfId(ifIndex);
    bool const isManagement = !port || port.stringValue().starts_with("Management");
    for (auto const& [address, flags] : netlink_.addresses(ifIndex)) {
      if (address.isV6()) continue;
      Wire::IpAddrWithMask const network = Grammar::withoutHostBits(address.v4());
      result.push_back({ifIndex, isManagement, rangeOf(network), network.stringValue()});
    }
  }
  return result;
}

// 0 when it is not known.
int Takeovers::deviceOf(Routing::Via const& via, std::vector<Network> const& networks) const {
  if (via.intf) return ports_->port(via.intf).ifIndex;
  auto const found = std::ranges::find_if(networks, [&](Network const& network) {
    return network.range.first <= via.hop.value && via.hop.value <= network.range.last;
  });
  return found != networks.end() ? found->ifIndex : 0;
}

}  // namespace Linux
