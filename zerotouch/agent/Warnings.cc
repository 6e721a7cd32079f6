#include "zerotouch/agent/Warnings.h"

namespace ZeroTouch {

namespace {
constexpr std::uint32_t error = 3;
constexpr std::uint32_t warning = 4;
constexpr Kel::Seconds interval = 0;
constexpr double burst = 1;
}  // namespace

Kel::LogHandle downloadImpossible("DOWNLOAD_IMPOSSIBLE", error, "Nothing can be downloaded: %s",
                                  "The library that downloads files, libcurl, cannot be loaded or used.",
                                  "Install libcurl, and see that memory is left.", interval, burst, 0);

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

Kel::LogHandle dhcpNotAsked("DHCP_NOT_ASKED", warning, "No DHCP server could be asked: %s",
                            "The attempt ends without a query, since no DHCP client ran until its end.",
                            "Connect a port that may take part, or check that the DHCP client can be run.",
                            interval, burst, 0);

Kel::LogHandle dhcpResultsLeft(
    "DHCP_RESULTS_REMAIN", warning, "The DHCP results of the last attempt were not removed in time",
    "The clean-up script has not reported that the results are gone. The next query starts with what is left "
    "of them.",
    "Check that the DHCP hook is installed and can reach the state tree.", interval, burst, 0);

Kel::LogHandle addressNotActive(
    "IDENTITY_NOT_ACTIVE", warning, "The address that DHCP brought did not become active: %s",
    "The address was configured, but the interface does not use it. What the answer brought is taken back.",
    "Check that the address is not in use elsewhere and that the port keeps its link.", interval, burst, 0);

Kel::LogHandle addressGone("ADDRESS_LOST", warning,
                           "The address was lost before the download could be tried again: %s",
                           "The interface no longer uses the address that DHCP brought.",
                           "Check the link of the port and who else changes its addresses.", interval, burst,
                           0);

Kel::LogHandle bootFileUnusable(
    "BOOT_FILE_NOT_URL", warning, "The boot file %s cannot be downloaded: %s",
    "The boot file's name must be a URL that begins with http, https, ftp or tftp in lower case, or the name "
    "of a file on the TFTP server that the answer names.",
    "Correct the boot file's name on the DHCP server (DHCPv4 option 67, DHCPv6 option 59), or name a TFTP "
    "server (DHCPv4 option 66).",
    interval, burst, 0);

}  // namespace ZeroTouch
