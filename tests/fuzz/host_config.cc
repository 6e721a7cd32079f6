// The host's platform.toml: it is used, or refused with its name and line.
#include "programs/zerotouchd/config/HostConfig.h"
#include "tests/fuzz/Fuzz.h"

namespace {

void check(HostConfig const& config) {
  for (Kel::String const& text :
       {config.cellType, config.runDirectory, config.library, config.socketPath, config.inventory.eeprom})
    KEL_ASSERT(!text.empty(), "a value");
  KEL_ASSERT(config.maxRunTime >= 0 && config.maxDownloadSize > 0, "a limit");
  KEL_ASSERT(!config.system.reloadCommand.empty() && !config.system.logReloadCommand.empty(), "a program");
  KEL_ASSERT(config.dhcpClient.empty() || access(config.dhcpClient.c_str(), X_OK) == 0, "a program");
  Linux::PortSelection const selection(config.ports);
  for (char const* const device : {"et1", "lo", "", "a-device-name15"}) selection.intfId(device);
}

}  // namespace

void fuzz(std::string_view input) {
  static ScratchFile const file("platform.toml");
  file.write(input);
  try {
    check(readHostConfig(file.path(), true));
  } catch (BadInput const& error) {
    std::string_view lines = error.what();
    do {
      std::string_view text = take(lines, "\n");
      KEL_ASSERT(
          take(text, ":") == file.path() && take(text, ": ").find_first_not_of("0123456789") == text.npos,
          "the file and the line");
      KEL_ASSERT(!text.empty() && isHarmless(text), "the reason");
    } while (!lines.empty());
  }
}
