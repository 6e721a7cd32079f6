#include "platform/linux/MtuApplier.h"

#include "platform/linux/KernelSettings.h"

namespace Linux {

void MtuApplier::apply(Wire::IntfId const& intfId, Port const& port) {
  static std::uint32_t const noWish = Kel::makePtr<Interface::IntfConfig>(Wire::IntfId())->mtu();
  Kel::Ptr<Interface::IntfConfig> config = vlanIntfConfigDir_->intfConfig(intfId);
  if (!config) config = ethPhyIntfConfigDir_->intfConfig(intfId);
  if (config && config->mtu() != noWish) {
    settings_.wantedIs(port.ifIndex, mtuItem, std::to_string(config->mtu()));
  } else {
    settings_.wantedDel(port.ifIndex, mtuItem);
  }
}

}  // namespace Linux
