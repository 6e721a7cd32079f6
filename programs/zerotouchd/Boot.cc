#include "programs/zerotouchd/Boot.h"

#include <filesystem>
#include <utility>

#include "platform/kel/BootMemory.h"
#include "programs/zerotouchd/Events.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace {

// Whether the settings file had the entry. The mark is written before the entry is removed: if the power
// fails in between, provisioning is off once too often rather than once too seldom. A flash that cannot be
// written keeps the entry, to the same effect.
bool findDisableEntry(Kel::BootMemory const& mark, Reading reading) {
  Kel::String const path = ZeroTouch::filePathFromFSRoot(ZeroTouch::defaultConfigFilePath);
  auto settings = ZeroTouch::readSettings(path);
  if (!settings) return false;
  auto const entry = settings->find(ZeroTouch::disableSetting);
  if (entry == settings->end() || entry->second != ZeroTouch::disableOnNextReload) return false;
  if (reading == Reading::only) return true;
  // Without the mark, only the entry tells a host that is restarted within this boot, so it stays.
  if (!mark.keep("").empty()) return true;
  settings->erase(entry);
  if (Kel::String const failure = ZeroTouch::writeSettings(path, *settings); !failure.empty())
    say(failure + "; provisioning will be off at the next boot too", warningPriority);
  return true;
}

}  // namespace

Kel::String stringValue(ProvisioningSwitch const& provisioning) {
  return Kel::String("provisioning is ") + (provisioning.on ? "on" : "off") + ": " + provisioning.reason;
}

ProvisioningSwitch provisioningAtBoot(Kel::String const& runDirectory, Reading reading) {
  Kel::BootMemory const mark(runDirectory + "/disabled-for-this-boot", Kel::BootMemory::inNamespace("uts"));
  Kel::String const startupConfig = ZeroTouch::filePathFromFSRoot(ZeroTouch::defaultStartupConfigPath);
  bool const disabledOnce = findDisableEntry(mark, reading) || mark.contents().has_value();
  if (std::filesystem::exists(startupConfig))
    return {false, "there is a startup configuration, " + startupConfig};
  if (disabledOnce) return {false, "it was switched off for this boot"};
  return {true, "there is no startup configuration, " + startupConfig};
}

ReloadMark::ReloadMark(Kel::String const& runDirectory)
    : memory_(runDirectory + "/reload-is-due", Kel::BootMemory::inNamespace("uts")),
      left_(memory_.contents().has_value()) {}

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
  if (Kel::String const failure = memory_.keep(""); !failure.empty()) say(failure);
}
