#include "programs/zerotouchd/ProvisioningSwitch.h"

#include <filesystem>

#include "platform/kel/BootMemory.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace {

// The mark comes first: if the power goes between the two, provisioning is off once too often rather than
// once too seldom. A flash that cannot be written keeps the entry, to the same effect.
bool consumeDisableEntry(Kel::BootMemory const& mark) {
  Kel::String const path = ZeroTouch::filePathFromFSRoot(ZeroTouch::defaultConfigFilePath);
  auto settings = ZeroTouch::readSettings(path);
  if (!settings) return false;
  auto const entry = settings->find(ZeroTouch::disableSetting);
  if (entry == settings->end() || entry->second != ZeroTouch::disableOnNextReload) return false;
  // Without the mark a host restarted within this boot would not know; then the entry has to stay.
  if (!mark.keep("").empty()) return true;
  settings->erase(entry);
  ZeroTouch::writeSettings(path, *settings);
  return true;
}

}  // namespace

Kel::String stringValue(ProvisioningSwitch const& provisioning) {
  return Kel::String("provisioning is ") + (provisioning.on ? "on" : "off") + ": " + provisioning.reason;
}

ProvisioningSwitch provisioningAtBoot(Kel::String const& runDirectory) {
  Kel::BootMemory const mark(runDirectory + "/disabled-for-this-boot", Kel::BootMemory::inNamespace("uts"));
  Kel::String const startupConfig = ZeroTouch::filePathFromFSRoot(ZeroTouch::defaultStartupConfigPath);
  bool const disabledOnce = consumeDisableEntry(mark) || mark.contents().has_value();
  if (std::filesystem::exists(startupConfig))
    return {false, "there is a startup configuration, " + startupConfig};
  if (disabledOnce) return {false, "it was switched off for this boot"};
  return {true, "there is no startup configuration, " + startupConfig};
}
