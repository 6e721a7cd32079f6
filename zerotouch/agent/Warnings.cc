#include "zerotouch/agent/Warnings.h"

namespace ZeroTouch {

namespace {
constexpr std::uint32_t error = 3;
constexpr std::uint32_t warning = 4;
constexpr Kel::Seconds interval = 0;
constexpr double burst = 1;
}  // namespace

Kel::LogHandle downloadImpossible("DOWNLOAD_IMPOSSIBLE", error, "Nothing can be downloaded: %s",
                                  "The library that downloads files, libcurl, cannot be loaded.",
                                  "Install libcurl.", interval, burst, 0);

Kel::LogHandle saveFileIgnored("SAVE_FILE_IGNORED", warning, "Setting SAVE_FILE=%s is ignored: %s",
                               "The downloaded startup configuration is saved under its usual name, since "
                               "the setting names no file below "
                               "the flash.",
                               "Correct or remove SAVE_FILE in the settings file.", interval, burst, 0);

Kel::LogHandle downloadNotUsable("DOWNLOAD_NOT_USABLE", error, "The download cannot be used: %s",
                                 "The downloaded file can neither be installed nor run; the agent stops.",
                                 "Check that the flash is there, writable and not full.", interval, burst, 0);

Kel::LogHandle dhclientConfigCut(
    "DHCP_CONFIG_NOT_WRITTEN", error, "No room for the DHCP client's configuration %s",
    "The next query asks without what the file says, so that no answer is likely to "
    "name a boot file. The file is written again before each further query.",
    "Make room on its disk.", interval, burst, 0);

}  // namespace ZeroTouch
