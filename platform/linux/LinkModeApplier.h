// Sets the speed of physical ports.
//
// The default mode means the speed that the port was found at.
#pragma once

#include "platform/linux/ApplyQueue.h"
#include "platform/linux/Entities.h"

namespace Linux {

class LinkModeApplier : public PortApplier {
 public:
  LinkModeApplier(Entities const& entities, DeviceSettings& settings)
      : ethPhyIntfConfigDir_(entities.ethPhyIntfConfigDir), settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  Kel::Ptr<Interface::AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir_;
  DeviceSettings& settings_;
};

}  // namespace Linux
