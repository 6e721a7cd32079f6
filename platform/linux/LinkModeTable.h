// Which of ethtool's link modes make up each speed of the model, and what follows from them.
#pragma once

#include <linux/ethtool.h>

#include <span>
#include <string_view>

#include "platform/linux/LinkSettings.h"
#include "platform/model/interface.h"

namespace Linux {

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

}  // namespace Linux
