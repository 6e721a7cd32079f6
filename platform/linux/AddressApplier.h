// Puts the configured addresses on ports. An address that is on the port already belongs to somebody else and
// stays.
#pragma once

#include <set>

#include "platform/linux/ApplyQueue.h"
#include "platform/linux/Entities.h"

namespace Linux {

class AddressApplier : public PortApplier {
 public:
  AddressApplier(Entities const& entities, Netlink const& netlink, DeviceSettings& settings)
      : l3IntfConfigDir_(entities.l3IntfConfigDir),
        ipConfig_(entities.ipConfig),
        ip6Config_(entities.ip6Config),
        netlink_(netlink),
        settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  std::set<Wire::IpGenAddrWithMask> configured(Wire::IntfId const& intfId) const;

  Kel::Ptr<L3::Intf::ConfigDir const> l3IntfConfigDir_;
  Kel::Ptr<Ip::Config const> ipConfig_;
  Kel::Ptr<Ip6::Config const> ip6Config_;
  Netlink const& netlink_;
  DeviceSettings& settings_;
};

}  // namespace Linux
