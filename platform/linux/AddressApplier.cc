#include "platform/linux/AddressApplier.h"

#include "platform/linux/KernelSettings.h"

namespace Linux {

namespace {

Kel::String const itemStart = Kel::String(addressItem) + ":";

}  // namespace

std::set<Wire::IpGenAddrWithMask> AddressApplier::configured(Wire::IntfId const& intfId) const {
  std::set<Wire::IpGenAddrWithMask> result;
  if (!l3IntfConfigDir_->intfConfig(intfId)) return result;
  if (auto const& ip = ipConfig_->ipIntfConfig(intfId); ip && !ip->addrWithMask().address.isZero()) {
    result.insert(ip->addrWithMask());
  }
  if (auto const& ip6 = ip6Config_->intf(intfId)) {
    for (auto const& [address, present] : ip6->addr()) result.insert(address);
  }
  return result;
}

void AddressApplier::apply(Wire::IntfId const& intfId, Port const& port) {
  auto const addresses = configured(intfId);
  std::set<Kel::String> items;
  for (auto const& address : addresses) items.insert(itemStart + address.stringValue());
  auto const before = settings_.wanted(port.ifIndex);
  for (auto const& [item, value] : before) {
    if (item.starts_with(itemStart) && !items.contains(item)) settings_.wantedDel(port.ifIndex, item);
  }
  for (auto const& address : addresses) {
    Kel::String const item = itemStart + address.stringValue();
    // The kernel drops IPv6 addresses when the link is taken down.
    bool const dropped = before.contains(item) && !netlink_.addresses(port.ifIndex).contains(address);
    if (!dropped) {
      settings_.wantedIs(port.ifIndex, item, "present");
    } else if (port.linkUp) {
      settings_.renew(port.ifIndex, item);
    }
  }
}

}  // namespace Linux
