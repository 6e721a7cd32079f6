#include "platform/linux/Warnings.h"

#include <algorithm>

#include "platform/kel/Format.h"

namespace Linux {

namespace {
constexpr std::uint32_t warning = 4;
constexpr std::uint32_t informational = 6;
constexpr Kel::Seconds interval = 60;
constexpr double burst = 20;
}  // namespace

Kel::LogHandle portSettingFailed("PORT_SETTING_FAILED", warning, "Cannot set %s of %s to %s: %s",
                                 "The kernel or the device's driver refused a setting.",
                                 "Check what the device supports.", interval, burst, 0);

Kel::LogHandle undoJournalFailed(
    "UNDO_JOURNAL_FAILED", warning, "Undo journal: %s",
    "Changes to this system cannot be recorded, or were not recorded properly. Should this process be "
    "killed, they stay.",
    "Check that the directory is writable and not full.", interval, burst, 0);

Kel::LogHandle leftoversUndone("LEFTOVERS_UNDONE", informational, "Put back %s of the system",
                               "An earlier process ended without undoing its changes to this system.",
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
    "LINK_MODE_IGNORED", warning, "The speed of %s is not %s though its driver accepted that",
    "The driver took the setting of the port's speed, but does not report it back.",
    "Check what speeds the device and its module support.", interval, burst, 0);

Kel::LogHandle packetSocketFailed("PACKET_SOCKET_FAILED", warning, "Cannot listen for frames on port %s: %s",
                                  "LLDP frames that a neighbour sends on the port are not heard, for now.",
                                  "Check that zerotouchd may open packet sockets (CAP_NET_RAW).", interval,
                                  burst, 0);

Kel::LogHandle routerAdvertisementsFailed("ROUTER_ADVERTISEMENTS_FAILED", warning,
                                          "Cannot listen for IPv6 router advertisements: %s",
                                          "No port will get its addresses by DHCPv6.",
                                          "Check that the kernel has IPv6.", interval, burst, 0);

Kel::LogHandle eepromInvalid("EEPROM_INVALID", warning, "The system EEPROM %s is not used: %s",
                             "The model, serial number and MAC address are taken from elsewhere.",
                             "Check the EEPROM's contents.", interval, burst, 0);

Kel::LogHandle valueDropped(
    "VALUE_DROPPED", warning, "The %s '%s' is not used: %s",
    "What is configured, or what a DHCP server sent, makes no sense to this system. The "
    "rest of it counts.",
    "Correct the DHCP server's configuration.", interval, burst, 0);

Kel::LogHandle routeNotInUse("ROUTE_NOT_IN_USE", warning, "Route %s does not use %s",
                             "The kernel takes no next hop that it cannot reach through a port that is up. "
                             "It is tried again whenever a "
                             "port or an address changes.",
                             "Check the DHCP server's routes against the address and mask that it gives.",
                             interval, burst, 0);

Kel::LogHandle routesTakeOver(
    "ROUTES_TAKE_OVER", warning, "Routes by %s take over %s",
    "The routes of a DHCP server win against others of this system. They are in use "
    "as they were sent.",
    "Check that the DHCP server on that port is one of yours, and its routes.", interval, burst, 0);

Kel::LogHandle hostNameFailed("HOST_NAME_FAILED", warning, "Cannot set the host name to %s: %s",
                              "The kernel refused the host name.",
                              "Check that zerotouchd may set the host name (CAP_SYS_ADMIN).", interval, burst,
                              0);

Kel::LogHandle systemFileFailed("SYSTEM_FILE_FAILED", warning, "A file of the system is not changed: %s",
                                "Name servers or log servers are not as they are configured.",
                                "Check that the directory exists and is writable.", interval, burst, 0);

Kel::LogHandle logReloadFailed("LOG_RELOAD_FAILED", warning, "The log servers do not count yet: %s: %s",
                               "The command that lets the log service read its configuration failed.",
                               "Check the log service, and the command in the host's configuration.",
                               interval, burst, 0);

Kel::LogHandle reloadFailed("RELOAD_FAILED", warning, "Cannot reload the system: %s: %s; tried again in %d s",
                            "The command that reloads the system failed.",
                            "Check the command in the host's configuration, or reload the system by hand.",
                            interval, burst, 0);

void Dropped::add(char const* what, std::string_view value, std::string_view fault) {
  Kel::String const key = Kel::String(what) + " " + Kel::String(value);
  if (now_.insert(key).second && !before_.contains(key))
    valueDropped.log(what, Kel::printable(value, Kel::longestShown), fault);
}

}  // namespace Linux
