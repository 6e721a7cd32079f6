#include "platform/linux/Warnings.h"

namespace Linux {

namespace {
constexpr std::uint32_t warning = 4;
constexpr std::uint32_t informational = 6;
constexpr Kel::Seconds interval = 60;
constexpr double burst = 20;
}  // namespace

Kel::LogHandle portSettingFailed("PORT_SETTING_FAILED", warning, "Cannot set %s of device %s to %s: %s",
                                 "The kernel or the device's driver refused a setting.",
                                 "Check what the device supports.", interval, burst, 0);

Kel::LogHandle undoJournalFailed(
    "UNDO_JOURNAL_FAILED", warning, "Undo journal %s: %s: %s",
    "Changes to network devices cannot be recorded, or were not recorded properly. Should this process be "
    "killed, they stay.",
    "Check that the directory is writable and not full.", interval, burst, 0);

Kel::LogHandle leftoversUndone("LEFTOVERS_UNDONE", informational, "Put back %u settings of network devices",
                               "An earlier process ended without undoing its changes to network devices.",
                               Kel::NoActionRequired, interval, burst, 0);

Kel::LogHandle portNameInUse("PORT_NAME_IN_USE", warning,
                             "Device %s is ignored: its name %s belongs to device %s",
                             "The rules for port names give two devices the same name.",
                             "Correct the rules for port names.", interval, burst, 0);

Kel::LogHandle portNameInvalid("PORT_NAME_INVALID", warning,
                               "Device %s is ignored: its port name is empty or longer than 64 bytes",
                               "The rules for port names make no valid name of the device's.",
                               "Correct the rules for port names.", interval, burst, 0);

Kel::LogHandle linkModeIgnored(
    "LINK_MODE_IGNORED", warning, "Device %s does not run at %s though its driver accepted that",
    "The driver took the setting of the port's speed, but does not report it back.",
    "Check what speeds the device and its module support.", interval, burst, 0);

Kel::LogHandle packetSocketFailed("PACKET_SOCKET_FAILED", warning, "Cannot listen for frames on port %s: %s",
                                  "LLDP frames that a neighbour sends on the port are not heard, for now.",
                                  Kel::CallSupportIfPersists, interval, burst, 0);

Kel::LogHandle routerAdvertisementsFailed("ROUTER_ADVERTISEMENTS_FAILED", warning,
                                          "Cannot listen for IPv6 router advertisements: %s",
                                          "No port will get its addresses by DHCPv6.",
                                          "Check that the kernel has IPv6.", interval, burst, 0);

Kel::LogHandle eepromInvalid("EEPROM_INVALID", warning, "The system EEPROM %s is not used: %s",
                             "The model, serial number and MAC address are taken from elsewhere.",
                             "Check the EEPROM's contents.", interval, burst, 0);

}  // namespace Linux
