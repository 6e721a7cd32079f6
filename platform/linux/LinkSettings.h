// A device's link settings, as ETHTOOL_GLINKSETTINGS and ETHTOOL_SLINKSETTINGS exchange them with its driver.
#pragma once

#include <bitset>
#include <optional>

#include "platform/kel/Types.h"

namespace Linux {

// Of ETHTOOL_LINK_MODE_*_BIT; larger than any kernel's.
using LinkModeMask = std::bitset<512>;

struct LinkSettings {
  bool autoneg = false;
  std::uint32_t speed = 0;  // Mb/s, or SPEED_UNKNOWN, as often while there is no link
  std::uint8_t duplex = 0;  // DUPLEX_*
  std::uint8_t port = 0;    // PORT_*
  LinkModeMask supported;
  LinkModeMask advertising;

  bool operator==(LinkSettings const&) const = default;
};

// Nothing when the device is gone or its driver has no such settings; errno says which.
std::optional<LinkSettings> readLinkSettings(Kel::String const& deviceName);

// Hands over autoneg, speed, duplex and what is advertised; the rest stays as it is. Returns "" or why not. A
// driver may accept settings and ignore them.
Kel::String writeLinkSettings(Kel::String const& deviceName, LinkSettings const& settings);

}  // namespace Linux
