#include "platform/linux/LinkUpApplier.h"

#include "platform/linux/KernelSettings.h"

namespace Linux {

void LinkUpApplier::apply(Wire::IntfId const& intfId, Port const& port) {
  if (l3IntfConfigDir_->intfConfig(intfId)) {
    settings_.wantedIs(port.ifIndex, linkUpItem, "1");
  } else {
    settings_.wantedDel(port.ifIndex, linkUpItem);
  }
}

}  // namespace Linux
