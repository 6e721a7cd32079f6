#include "zerotouch/agent/Events.h"

namespace ZeroTouch {

namespace {

constexpr std::uint32_t error = 3;
constexpr std::uint32_t warning = 4;
constexpr std::uint32_t informational = 6;

// No limit on repeats.
constexpr Kel::Seconds interval = 0.0;
constexpr double burst = 1.0;
constexpr std::uint32_t flags = 0;

constexpr char const* dhcpv6Query =
    "Zero Touch Provisioning is trying to discover a DHCPv6 server on the network. Zero Touch Provisioning "
    "will only accept a DHCPv6 response with a valid DHCPv6 option 59 present. To cancel Zero Touch "
    "Provisioning, type zerotouch cancel at the CLI.";

constexpr char const* dhcpv6Failure =
    "Zero Touch Provisioning failed to get a DHCPv6 response with a valid DHCPv6 option 59 answer from a "
    "server on the network. Check your DHCPv6 server for proper Zero Touch Provisioning configuration. To "
    "cancel Zero Touch Provisioning, type zerotouch cancel at the CLI.";

constexpr char const* dhcpv6Success =
    "Zero Touch Provisioning successfully received a DHCPv6 response with a valid DHCPv6 option 59 present "
    "from a server on the network.";

constexpr char const* scriptAdvice =
    "Check the config script for any errors. If the problem persists, contact your support representative. "
    "Otherwise, no action is required.";

}  // namespace

Kel::LogHandle ZTP_INIT(
    "ZTP_INIT", informational, "No startup-config found, starting Zero Touch Provisioning",
    "No startup-config was found on flash, the system has entered Zero Touch Provisioning mode and is "
    "actively trying to download the startup-config from a remote system. To cancel Zero Touch "
    "Provisioning, type zerotouch cancel at the CLI.",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_DHCPv4_QUERY(
    "ZTP_DHCPv4_QUERY", informational, "Sending DHCPv4 request on %s",
    "Zero Touch Provisioning is trying to discover a DHCPv4 server on the network. Zero Touch Provisioning "
    "will only accept a DHCPv4 response with a valid DHCPv4 option 67 present. To cancel Zero Touch "
    "Provisioning, type zerotouch cancel at the CLI.",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_DHCPv6_QUERY("ZTP_DHCPv6_QUERY", informational, "Sending DHCPv6 request on %s",
                                dhcpv6Query, Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_STATELESS_DHCPv6_QUERY("ZTP_STATELESS_DHCPv6_QUERY", informational,
                                          "Sending stateless DHCPv6 request on %s", dhcpv6Query,
                                          Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_DHCPv4_QUERY_FAIL(
    "ZTP_DHCPv4_QUERY_FAIL", warning, "Failed to get a valid DHCPv4 response",
    "Zero Touch Provisioning failed to get a DHCPv4 response with a valid DHCPv4 option 67 answer from a "
    "server on the network. Check your DHCPv4 server for proper Zero Touch Provisioning configuration. To "
    "cancel Zero Touch Provisioning, type zerotouch cancel at the CLI.",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_DHCPv6_QUERY_FAIL("ZTP_DHCPv6_QUERY_FAIL", warning,
                                     "Failed to get a valid DHCPv6 response", dhcpv6Failure,
                                     Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_STATELESS_DHCPv6_QUERY_FAIL(
    "ZTP_STATELESS_DHCPv6_QUERY_FAIL", warning,
    "Failed to get a valid stateless configuration parameters over DHCPv6 response", dhcpv6Failure,
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_DHCPv4_SUCCESS(
    "ZTP_DHCPv4_SUCCESS", informational, "DHCPv4 response received on %s",
    "Zero Touch Provisioning successfully received a DHCPv4 response with a valid DHCPv4 option 67 present "
    "from a server on the network.",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_DHCPv6_SUCCESS("ZTP_DHCPv6_SUCCESS", informational, "DHCPv6 response received on %s",
                                  dhcpv6Success, Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_STATELESS_DHCPv6_SUCCESS(
    "ZTP_STATELESS_DHCPv6_SUCCESS", informational,
    "DHCPv6 response with stateless configuration parameters received on %s", dhcpv6Success,
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_CONFIG_DOWNLOAD(
    "ZTP_CONFIG_DOWNLOAD", informational, "Attempting to download the startup-config from %s",
    "Zero Touch Provisioning is attempting to download the startup-config or a config script from the URL "
    "specified in the received DHCP response. To cancel Zero Touch Provisioning, type zerotouch cancel at "
    "the CLI.",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_CONFIG_DOWNLOAD_FAIL(
    "ZTP_CONFIG_DOWNLOAD_FAIL", warning, "Failed to download the startup-config from %s. Error: %s",
    "Zero Touch Provisioning failed to download the startup-config or a config script from the URL "
    "specified in the received DHCP response.Check the URL specified in the DHCP response. To cancel Zero "
    "Touch Provisioning, type zerotouch cancel at the CLI.",
    Kel::CallSupportIfPersists, interval, burst, flags);

Kel::LogHandle ZTP_CONFIG_DOWNLOAD_TIMEOUT(
    "ZTP_CONFIG_DOWNLOAD_TIMEOUT", warning,
    "Timed out trying to download the startup-config or a config script from %s after %u seconds",
    "Zero Touch Provisioning timed out trying to download the startup-config or a config script from the "
    "URL specified in the received DHCP response. To cancel Zero Touch Provisioning, type zerotouch cancel "
    "at the CLI.",
    Kel::CallSupportIfPersists, interval, burst, flags);

Kel::LogHandle ZTP_CONFIG_DOWNLOAD_SUCCESS(
    "ZTP_CONFIG_DOWNLOAD_SUCCESS", informational, "Successfully downloaded %s from %s",
    "Zero Touch Provisioning successfully downloaded the startup-config or a config script from the URL "
    "specified in the received DHCP response.",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_EXEC_SCRIPT("ZTP_EXEC_SCRIPT", informational, "Executing the downloaded config script",
                               "Zero Touch Provisioning is executing the downloaded config script.",
                               Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_EXEC_SCRIPT_TIMEOUT(
    "ZTP_EXEC_SCRIPT_TIMEOUT", warning, "Timed out executing the downloaded config script after %u seconds",
    "Zero Touch Provisioning timed out after waiting long enough for the downloaded config script to "
    "complete execution. This usually indicates a problem with the config script.",
    scriptAdvice, interval, burst, flags);

Kel::LogHandle ZTP_STARTUP_FILE_SYNC_TIMEOUT("ZTP_STARTUP_FILE_SYNC_TIMEOUT", informational,
                                             "Waiting on File Replicator to synchronize the startup-config ",
                                             "with the Standby.", Kel::NoActionRequired, interval, burst,
                                             flags);

Kel::LogHandle ZTP_STARTUP_FILE_SYNC_FAIL("ZTP_STARTUP_FILE_SYNC_FAIL", informational,
                                          "Failed to Synchronize the startup-config file with the standby ",
                                          "rebooting the Active and Standby.", Kel::NoActionRequired,
                                          interval, burst, flags);

Kel::LogHandle ZTP_EXEC_SCRIPT_FAIL(
    "ZTP_EXEC_SCRIPT_FAIL", warning, "Config script exited with an error. Error code: %s",
    "Zero Touch Provisioning failed to execute the downloaded config script. This usually indicates a "
    "problem executing the config script or the config script exiting with a non zero return code.",
    scriptAdvice, interval, burst, flags);

Kel::LogHandle ZTP_EXEC_SCRIPT_SIGNALED(
    "ZTP_EXEC_SCRIPT_SIGNALED", warning, "Config script exited with an uncaught signal. Signal code: %s",
    "Zero Touch Provisioning failed to execute the downloaded config script. This usually indicates a "
    "problem executing the config script. ",
    scriptAdvice, interval, burst, flags);

Kel::LogHandle ZTP_EXEC_SCRIPT_SUCCESS(
    "ZTP_EXEC_SCRIPT_SUCCESS", informational, "Successfully executed the downloaded config script",
    "Zero Touch Provisioning successfully executed the downloaded config script.", Kel::NoActionRequired,
    interval, burst, flags);

Kel::LogHandle ZTP_RELOAD(
    "ZTP_RELOAD", informational, "Rebooting the system",
    "Zero Touch Provisioning is rebooting the system after either a successful configuration of the system "
    "or because Zero Touch Provisioning was cancelled at the CLI",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_RETRY(
    "ZTP_RETRY", informational, "Retrying Zero Touch Provisioning from the beginning (attempt %d)",
    "Zero Touch Provisioning is retrying from the beginning. To cancel Zero Touch Provisioning, type "
    "zerotouch cancel at the CLI.",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_CANCEL(
    "ZTP_CANCEL", informational, "Cancelling Zero Touch Provisioning",
    "Zero Touch Provisioning was cancelled at the CLI. The system will reboot with Zero Touch disabled.",
    Kel::NoActionRequired, interval, burst, flags);

Kel::LogHandle ZTP_INTERFACE_SPEED("ZTP_INTERFACE_SPEED", informational,
                                   "Setting interface speed to %s for %s",
                                   "Set the global speed on all capable interfaces.", Kel::NoActionRequired,
                                   interval, burst, flags);

Kel::LogHandle downloadImpossible("DOWNLOAD_IMPOSSIBLE", error, "Nothing can be downloaded: %s",
                                  "The library that downloads files, libcurl, cannot be loaded or used.",
                                  "Install libcurl, and see that memory is left.", interval, burst, 0);

Kel::LogHandle saveFileIgnored("SAVE_FILE_IGNORED", warning, "Setting SAVE_FILE=%s is ignored: %s",
                               "The downloaded startup configuration is saved under its usual name, since "
                               "the setting names no file below "
                               "the flash.",
                               "Correct or remove SAVE_FILE in the settings file.", interval, burst, 0);

Kel::LogHandle settingsNotWritten(
    "SETTINGS_NOT_WRITTEN", warning, "The settings file is not as it should be: %s",
    "What provisioning keeps for the next boot could not be written to the flash. The run goes on.",
    "Check that the flash is there, writable and not full. If the switch is to stay as it is after the next "
    "boot, check that it has a startup configuration.",
    interval, burst, 0);

Kel::LogHandle downloadNotUsable(
    "DOWNLOAD_NOT_USABLE", error, "The download cannot be used: %s",
    "The downloaded file can neither be installed nor run. The attempt has failed, and "
    "provisioning starts over.",
    "Check that the flash is there, writable and not full.", interval, burst, 0);

Kel::LogHandle flashNotFlushed("FLASH_NOT_FLUSHED", warning,
                               "What the script has written may not be on the flash yet: %s",
                               "After a script that has succeeded, the flash is flushed before provisioning "
                               "is switched off for the next "
                               "boot, so that a power cut does not leave the switch without both. When that "
                               "fails, so has the attempt; when "
                               "the program for it is missing, the run goes on.",
                               "Check that the flash is there, writable and without faults.", interval, burst,
                               0);

Kel::LogHandle configDoubtful("CONFIG_DOUBTFUL", warning,
                              "The startup configuration from %s is hardly the one that was meant: %s",
                              "Whatever a server sends with a good status is installed, also a page that "
                              "asks for a login, and what comes "
                              "with a redirect, which is not followed.",
                              "Let the URL lead to the configuration itself. Replace or remove the file that "
                              "was installed, and reload.",
                              interval, burst, 0);

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
    "The boot file's name must be a URL that begins with http, https, ftp or tftp in lower case, followed by "
    ":// and a host, or the name of a file on the TFTP server that the answer names.",
    "Correct the boot file's name on the DHCP server (DHCPv4 option 67, DHCPv6 option 59), or name a TFTP "
    "server (DHCPv4 option 66).",
    interval, burst, 0);

Kel::LogHandle httpsServerVerified("HTTPS_SERVER_VERIFIED", informational,
                                   "The server of %s was verified against %s",
                                   "The certificate of the HTTPS server, and the name in it, were checked as "
                                   "[authenticity] https_ca in platform.toml asks for.",
                                   Kel::NoActionRequired, interval, burst, 0);

Kel::LogHandle bootFileSigned(
    "BOOT_FILE_SIGNED", informational, "The boot file from %s is signed by %s (SHA-256 %s)",
    "The signature of the boot file was verified as [authenticity] in platform.toml "
    "asks for. The fingerprint is that of the signer's certificate.",
    Kel::NoActionRequired, interval, burst, 0);

Kel::LogHandle datesNotChecked(
    "DATES_NOT_CHECKED", warning,
    "The dates of certificates and signatures are not checked: the clock shows %s",
    "The clock shows a day before the one on which this software was built, so it cannot be right. What has "
    "expired is believed too.",
    "Set the clock, or replace its battery.", interval, burst, 0);

}  // namespace ZeroTouch
