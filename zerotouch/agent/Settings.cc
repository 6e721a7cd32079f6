// The settings file, as the state machine reads and writes it.
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

void ZeroTouchSm::doReadConfigFile() {
  auto const settings = readSettings(filePathFromFSRoot(defaultConfigFilePath));
  if (!settings) {
    SM_TRACE(5, " Failed to open config file");
    return;
  }
  for (auto const& [key, value] : *settings) {
    SM_TRACE(5, " - read key=" << key << " value=" << value);
    configEntryIs(key, value);
  }
}

void ZeroTouchSm::doWriteConfigFile() {
  if (!configModified()) return;
  Settings settings;
  for (auto const& [key, value] : configEntry()) {
    SM_TRACE(5, " Writing key=" << key << " value=" << value << " to the config file");
    settings[key] = value;
  }
  auto const error = writeSettings(filePathFromFSRoot(defaultConfigFilePath), settings);
  if (!error.empty()) SM_TRACE(1, " " << error);
}

void ZeroTouchSm::doAddConfigEntry(Kel::String key, Kel::String value) {
  SM_TRACE(5, " key: " << key << " value: " << value);
  configEntryIs(key, std::move(value));
  configModifiedIs(true);
}

void ZeroTouchSm::doRemoveConfigEntry(Kel::String key) {
  SM_TRACE(5, " key: " << key);
  configEntryDel(key);
  configModifiedIs(true);
}

}  // namespace ZeroTouch
