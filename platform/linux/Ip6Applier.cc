#include "platform/linux/Ip6Applier.h"

#include "platform/linux/KernelSettings.h"

namespace Linux {

void Ip6Applier::apply(Wire::IntfId const& intfId, Port const& port) {
  auto const& config = ip6Config_->intf(intfId);
  if (!config || !config->enable() || !config->l3Config() || !l3IntfConfigDir_->intfConfig(intfId)) {
    for (char const* item : {disableIpv6Item, acceptRaDefRtrItem, acceptRaItem}) {
      settings_.wantedDel(port.ifIndex, item);
    }
    return;
  }
  // 2 and not 1: it means the same while the kernel does not forward, and goes on working once it does.
  bool const acceptRa = config->addrSource() == Ip6::AddrSource::routerAdvertisement;
  settings_.wantedIs(port.ifIndex, acceptRaItem, acceptRa ? "2" : "0");
  settings_.wantedIs(port.ifIndex, acceptRaDefRtrItem, config->acceptRaDefRtr() ? "1" : "0");
  // Last, since it may start the search for routers.
  settings_.wantedIs(port.ifIndex, disableIpv6Item, "0");
}

}  // namespace Linux
