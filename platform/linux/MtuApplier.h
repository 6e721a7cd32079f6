// Sets the MTU of ports and VLAN interfaces.
//
// The default of the configuration means no wish: the device keeps, or gets back, the MTU that it was found
// with.
#pragma once

#include "platform/linux/ApplyQueue.h"
#include "platform/linux/Entities.h"

namespace Linux {

class MtuApplier : public PortApplier {
 public:
  MtuApplier(Entities const& entities, DeviceSettings& settings)
      : ethPhyIntfConfigDir_(entities.ethPhyIntfConfigDir),
        vlanIntfConfigDir_(entities.vlanIntfConfigDir),
        settings_(settings) {}

  void apply(Wire::IntfId const& intfId, Port const& port) override;

 private:
  Kel::Ptr<Interface::AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir_;
  Kel::Ptr<Interface::VlanIntfConfigDir const> vlanIntfConfigDir_;
  DeviceSettings& settings_;
};

}  // namespace Linux
