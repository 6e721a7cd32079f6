#include "platform/linux/Adapter.h"

#include "platform/kel/Format.h"
#include "platform/kel/Loop.h"
#include "platform/linux/Warnings.h"
#include "platform/linux/settings/SettingKinds.h"

namespace Linux {

Adapter::Adapter(Entities const& entities, AdapterConfig const& config)
    : selection_(config.ports),
      netlink_(config.netlinkBuffer),
      settings_(config.runDirectory + "/undo-journal", ports_),
      linkUpApplier_(entities, settings_),
      ip6Applier_(entities, settings_),
      mtuApplier_(entities, settings_),
      linkModeApplier_(entities, settings_),
      addressApplier_(entities, netlink_, settings_),
      queue_(ports_, netlink_, settings_),
      configFollower_(entities, queue_),
      addressWatcher_(entities, netlink_, ports_),
      routerAdvertisements_(ports_, entities.raPacketStatus),
      localServices_(ports_),
      routeApplier_(entities, netlink_, ports_),
      hostNameApplier_(entities, config.runDirectory),
      resolvConfApplier_(entities, config.system.resolvConf, config.runDirectory),
      logHostApplier_(entities, config.system.logDropIn, config.system.logReloadCommand),
      reloadApplier_(entities, config.system.reloadCommand, [this] { keep_ = true; }) {
  kernelSettingsAre(settings_, netlink_);
  settings_.settingIs(linkModeItem, std::make_unique<LinkModeSetting>(ports_));
  keep_ = config.takeOver;
  if (!keep_) undoLeftovers();
  // The order matters: an MTU that is too small for IPv6 removes all IPv6 settings; routers are solicited as
  // soon as the link is up, so what may be learnt from them is set before; addresses need IPv6 to be on.
  for (PortApplier* applier : std::initializer_list<PortApplier*>{
           &mtuApplier_, &ip6Applier_, &linkModeApplier_, &linkUpApplier_, &addressApplier_}) {
    queue_.applierIs(applier);
  }
  linkWatcher_.emplace(entities, selection_, netlink_, ports_);
  inventory_.emplace(config.inventory, ports_, entities.entityMibStatus);
}

// A switch that is about to reload keeps what it was provisioned with until then; the reload removes it.
Adapter::~Adapter() {
  if (keep_) {
    settings_.keep();
    hostNameApplier_.keep();
    resolvConfApplier_.keep();
  } else {
    undo();
  }
}

void Adapter::undo() {
  // The command is waited for, since a service manager may end it together with this process.
  constexpr Kel::Seconds longest = 10;
  logHostApplier_.stop();
  if (logHostApplier_.busy()) {
    Kel::Loop::instance().runUntil([this] { return !logHostApplier_.busy(); }, longest);
  }
  // Nothing is handled from here on, so nothing that was undone comes back.
  resolvConfApplier_.undo();
  hostNameApplier_.undo();
  routeApplier_.undo();
  settings_.undo();
}

void Adapter::undoLeftovers() {
  unsigned const count = settings_.undo() + routeApplier_.undo() + (hostNameApplier_.undo() ? 1 : 0) +
                         (resolvConfApplier_.undo() ? 1 : 0) + (logHostApplier_.undo() ? 1 : 0);
  if (count == 0) return;
  leftoversUndone.log(count == 1 ? Kel::String("1 setting") : Kel::format("%u settings", count));
  netlink_.resync();
}

}  // namespace Linux
