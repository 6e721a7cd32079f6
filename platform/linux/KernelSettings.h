// The settings of a device that go through rtnetlink and /proc/sys.
#pragma once

#include "platform/linux/DeviceSettings.h"
#include "platform/linux/Netlink.h"

namespace Linux {

// Their kinds.
inline constexpr char linkUpItem[] = "up";        // 0, 1
inline constexpr char mtuItem[] = "mtu";          // bytes
inline constexpr char addressItem[] = "address";  // argument: address with mask; absent, present
inline constexpr char disableIpv6Item[] =
    "disable_ipv6";  // this and what follows: ip-sysctl of the same name
inline constexpr char acceptRaItem[] = "accept_ra";
inline constexpr char acceptRaDefRtrItem[] = "accept_ra_defrtr";

// Adds all of the above; `netlink` outlives `settings`.
void kernelSettingsAre(DeviceSettings& settings, Netlink& netlink);

}  // namespace Linux
