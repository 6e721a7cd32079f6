// The link settings of a device as ETHTOOL_GLINKSETTINGS and ETHTOOL_SLINKSETTINGS exchange them with its
// driver, and which of ethtool's link modes make up each speed of the model.
#pragma once

#include <linux/ethtool.h>

#include <bitset>
#include <optional>
#include <span>
#include <string_view>

#include "platform/kel/Types.h"
#include "platform/model/interface.h"

namespace Linux {

// A set of ETHTOOL_LINK_MODE_*_BIT. It has room for more of them than any kernel defines.
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

// One speed of the model.
struct LinkModeEntry {
  Interface::EthLinkMode mode;
  bool Interface::EthLinkModeSet::*member;
  std::string_view word;      // for people and for the undo journal
  std::uint32_t speed;        // Mb/s
  std::span<int const> bits;  // ETHTOOL_LINK_MODE_*_BIT
};

// The nine speeds, in the order of EthLinkMode.
std::span<LinkModeEntry const> linkModeTable();

// The link modes of all nine speeds.
LinkModeMask const& speedModes();
LinkModeMask maskOf(LinkModeEntry const& entry);

Interface::EthLinkModeSet linkModeCapabilities(LinkSettings const& settings);
Interface::AutonegCapability autonegCapability(LinkSettings const& settings);

// Sets the attributes of a port's record that tell what it can run at. A driver without such settings can do
// nothing; when reading fails for another reason, what was known stays.
void readLinkModes(Kel::String const& deviceName, Interface::EthPhyIntfStatus& status);

}  // namespace Linux
