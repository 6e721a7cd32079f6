// Brings up the link of every port that has a layer-3 configuration.
#pragma once

#include "platform/linux/ApplyQueue.h"
#include "platform/linux/Entities.h"

namespace Linux {

class LinkUpApplier : public PortApplier {
 public:
  LinkUpApplier(Entities const& entities, DeviceSettings& settings)
      : l3IntfConfigDir_(entities.l3IntfConfigDir), settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  Kel::Ptr<L3::Intf::ConfigDir const> l3IntfConfigDir_;
  DeviceSettings& settings_;
};

}  // namespace Linux
