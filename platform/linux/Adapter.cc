#include "platform/linux/Adapter.h"

#include "platform/linux/KernelSettings.h"
#include "platform/linux/LinkModeSetting.h"
#include "platform/linux/Warnings.h"

namespace Linux {

Adapter::Adapter(Entities const& entities, AdapterConfig const& config)
    : selection_(config.ports),
      netlink_(config.netlinkBuffer),
      settings_(config.runDirectory + "/undo-journal"),
      linkUpApplier_(entities, settings_),
      ip6Applier_(entities, settings_),
      mtuApplier_(entities, settings_),
      linkModeApplier_(entities, settings_),
      addressApplier_(entities, netlink_, settings_),
      queue_(ports_, netlink_, settings_),
      configFollower_(entities, queue_),
      addressWatcher_(entities, netlink_, ports_),
      routerAdvertisements_(ports_, entities.raPacketStatus),
      localServices_(ports_) {
  kernelSettingsAre(settings_, netlink_);
  settings_.settingIs(linkModeItem, std::make_unique<LinkModeSetting>());
  undoLeftovers();
  // An MTU that is too small for IPv6 takes all that IPv6 has away; and routers are asked for as soon as the
  // link is up, so what may be learnt from them is settled by then. Addresses need IPv6 to be on.
  for (PortApplier* applier : std::initializer_list<PortApplier*>{
           &mtuApplier_, &ip6Applier_, &linkModeApplier_, &linkUpApplier_, &addressApplier_}) {
    queue_.applierIs(applier);
  }
  linkWatcher_.emplace(entities, selection_, netlink_, ports_);
  inventory_.emplace(config.inventory, ports_, entities.entityMibStatus);
}

Adapter::~Adapter() {
  if (keep_) {
    settings_.keep();
  } else {
    settings_.undo();
  }
}

void Adapter::undoLeftovers() {
  unsigned const undone = settings_.undo();
  if (undone == 0) return;
  leftoversUndone.log(undone);
  netlink_.resync();
}

}  // namespace Linux
