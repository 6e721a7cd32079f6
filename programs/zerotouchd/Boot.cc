#include "programs/zerotouchd/Boot.h"

#include <filesystem>
#include <utility>

#include "platform/linux/Place.h"
#include "platform/linux/WholeFile.h"
#include "programs/zerotouchd/Events.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace {

// The content of a mark: a mark of an earlier boot, or of another switch in this machine, has another one.
Kel::String thisBoot() { return Linux::thisPlace("uts") + "\n"; }

// Whether the settings file had the entry. The mark is written before the entry is removed: if the power
// fails in between, provisioning is off once too often rather than once too seldom. A flash that cannot be
// written keeps the entry, to the same effect.
bool consumeDisableEntry(Kel::String const& mark) {
  Kel::String const path = ZeroTouch::filePathFromFSRoot(ZeroTouch::defaultConfigFilePath);
  auto settings = ZeroTouch::readSettings(path);
  if (!settings) return false;
  auto const entry = settings->find(ZeroTouch::disableSetting);
  if (entry == settings->end() || entry->second != ZeroTouch::disableOnNextReload) return false;
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(mark).parent_path(), error);
  // Without the mark, only the entry tells a host that is restarted within this boot, so it stays.
  if (!ZeroTouch::replaceFile(mark, thisBoot()).empty()) return true;
  settings->erase(entry);
  ZeroTouch::writeSettings(path, *settings);
  return true;
}

}  // namespace

Kel::String stringValue(ProvisioningSwitch const& provisioning) {
  return Kel::String("provisioning is ") + (provisioning.on ? "on" : "off") + ": " + provisioning.reason;
}

ProvisioningSwitch provisioningAtBoot(Kel::String const& runDirectory) {
  Kel::String const mark = runDirectory + "/disabled-for-this-boot";
  Kel::String const startupConfig = ZeroTouch::filePathFromFSRoot(ZeroTouch::defaultStartupConfigPath);
  bool const disabledOnce = consumeDisableEntry(mark) || Linux::readWhole(mark) == thisBoot();
  if (std::filesystem::exists(startupConfig))
    return {false, "there is a startup configuration, " + startupConfig};
  if (disabledOnce) return {false, "it was switched off for this boot"};
  return {true, "there is no startup configuration, " + startupConfig};
}

ReloadMark::ReloadMark(Kel::String const& runDirectory)
    : path_(runDirectory + "/reload-is-due"), place_(thisBoot()), left_(Linux::readWhole(path_) == place_) {}

void ReloadMark::follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm) {
  using Hooks = ZeroTouch::ZeroTouchSmModel::NotifieeConst;
  if (!sm) {
    reactor_ = {};
    return;
  }
  // A shutdown that is asked for always comes about, so the mark is left when it is asked for.
  reactor_ =
      Kel::Reactor(sm, {&Hooks::onTransitionState, &Hooks::onCurrentState}, [this, machine = sm.get()] {
        constexpr auto shutdown = ZeroTouch::ProvisioningState::stateShutdown;
        if (machine->transitionState() == shutdown || machine->currentState() == shutdown) leave();
      });
}

void ReloadMark::leave() {
  if (std::exchange(written_, true)) return;
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), error);
  Kel::String const reason = Linux::replaceWhole(path_, place_, 0600);
  if (!reason.empty()) say("cannot write " + path_ + ": " + reason);
}
