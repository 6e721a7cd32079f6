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

class ReloadMark::Reactor : public ZeroTouch::ZeroTouchSmModel::NotifieeConst {
 public:
  Reactor(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm, ReloadMark const& mark)
      : NotifieeConst(sm), mark_(mark) {}

  // A shutdown that is asked for always comes about, so the mark is left when it is asked for.
  void onTransitionState() override { handleState(notifier().transitionState()); }
  void onCurrentState() override { handleState(notifier().currentState()); }

 private:
  void handleState(ZeroTouch::ProvisioningState state) {
    if (state != ZeroTouch::ProvisioningState::stateShutdown || std::exchange(written_, true)) return;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(mark_.path_).parent_path(), error);
    Kel::String const reason = Linux::replaceWhole(mark_.path_, mark_.place_, 0600);
    if (!reason.empty()) say("cannot write " + mark_.path_ + ": " + reason);
  }

  ReloadMark const& mark_;
  bool written_ = false;
};

ReloadMark::ReloadMark(Kel::String const& runDirectory)
    : path_(runDirectory + "/reload-is-due"), place_(thisBoot()), left_(Linux::readWhole(path_) == place_) {}

ReloadMark::~ReloadMark() = default;

void ReloadMark::follow(Kel::Ptr<ZeroTouch::ZeroTouchSmModel const> const& sm) {
  reactor_ = sm ? Kel::makePtr<Reactor>(sm, *this) : nullptr;
}
