#include "platform/linux/LinkModeApplier.h"

#include "platform/linux/LinkModeSetting.h"

namespace Linux {

void LinkModeApplier::apply(Wire::IntfId const& intfId, Port const& port) {
  auto const config = ethPhyIntfConfigDir_->intfConfig(intfId);
  Kel::String const wanted = config ? linkModeText(*config) : "";
  if (wanted.empty()) {
    settings_.wantedDel(port.ifIndex, linkModeItem);
  } else {
    settings_.wantedIs(port.ifIndex, linkModeItem, wanted);
  }
}

}  // namespace Linux
