// Turns IPv6 on for ports whose IPv6 configuration says so, and decides what router advertisements may do
// there.
//
// A configuration that is not enabled, or that belongs to no layer-3 configuration, wants nothing: the port
// is left, or put back, as it was found.
#pragma once

#include "platform/linux/ApplyQueue.h"
#include "platform/linux/Entities.h"

namespace Linux {

class Ip6Applier : public PortApplier {
 public:
  Ip6Applier(Entities const& entities, DeviceSettings& settings)
      : l3IntfConfigDir_(entities.l3IntfConfigDir), ip6Config_(entities.ip6Config), settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  Kel::Ptr<L3::Intf::ConfigDir const> l3IntfConfigDir_;
  Kel::Ptr<Ip6::Config const> ip6Config_;
  DeviceSettings& settings_;
};

}  // namespace Linux
