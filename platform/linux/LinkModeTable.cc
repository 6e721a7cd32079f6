#include "platform/linux/LinkModeTable.h"

#include <algorithm>
#include <array>

namespace Linux {

namespace {

#define BITS(name, ...) constexpr int name[] = {__VA_ARGS__}
#define BIT(name) ETHTOOL_LINK_MODE_##name##_Full_BIT

// Drivers older than the modes of 2016 report any 10 gigabit port as 10000baseT.
BITS(modes10G, BIT(10000baseT), BIT(10000baseKX4), BIT(10000baseKR), ETHTOOL_LINK_MODE_10000baseR_FEC_BIT,
     BIT(10000baseCR), BIT(10000baseSR), BIT(10000baseLR), BIT(10000baseLRM), BIT(10000baseER));
BITS(modes25G, BIT(25000baseCR), BIT(25000baseKR), BIT(25000baseSR));
BITS(modes40G, BIT(40000baseKR4), BIT(40000baseCR4), BIT(40000baseSR4), BIT(40000baseLR4));
BITS(modes50G, BIT(50000baseCR2), BIT(50000baseKR2), BIT(50000baseSR2));
BITS(modes50G1, BIT(50000baseKR), BIT(50000baseSR), BIT(50000baseCR), BIT(50000baseLR_ER_FR),
     BIT(50000baseDR));
BITS(modes100G, BIT(100000baseKR4), BIT(100000baseSR4), BIT(100000baseCR4), BIT(100000baseLR4_ER4));
BITS(modes100G2, BIT(100000baseKR2), BIT(100000baseSR2), BIT(100000baseCR2), BIT(100000baseLR2_ER2_FR2),
     BIT(100000baseDR2));
BITS(modes200G4, BIT(200000baseKR4), BIT(200000baseSR4), BIT(200000baseLR4_ER4_FR4), BIT(200000baseDR4),
     BIT(200000baseCR4));
BITS(modes400G8, BIT(400000baseKR8), BIT(400000baseSR8), BIT(400000baseLR8_ER8_FR8), BIT(400000baseDR8),
     BIT(400000baseCR8));
// The speeds at which a twisted pair runs.
BITS(modesBaseT, ETHTOOL_LINK_MODE_10baseT_Half_BIT, BIT(10baseT), ETHTOOL_LINK_MODE_100baseT_Half_BIT,
     BIT(100baseT), ETHTOOL_LINK_MODE_1000baseT_Half_BIT, BIT(1000baseT), BIT(2500baseT), BIT(5000baseT),
     BIT(10000baseT));

#undef BIT
#undef BITS

using enum Interface::EthLinkMode;
using Set = Interface::EthLinkModeSet;

constexpr std::array<LinkModeEntry, 9> table = {{
    {linkMode10G, &Set::mode10G, "10g", SPEED_10000, modes10G},
    {linkMode25G, &Set::mode25G, "25g", SPEED_25000, modes25G},
    {linkMode40G, &Set::mode40G, "40g", SPEED_40000, modes40G},
    {linkMode50G, &Set::mode50G, "50g", SPEED_50000, modes50G},
    {linkMode50G1, &Set::mode50G1, "50g-1", SPEED_50000, modes50G1},
    {linkMode100G, &Set::mode100G, "100g", SPEED_100000, modes100G},
    {linkMode100G2, &Set::mode100G2, "100g-2", SPEED_100000, modes100G2},
    {linkMode200G4, &Set::mode200G4, "200g-4", SPEED_200000, modes200G4},
    {linkMode400G8, &Set::mode400G8, "400g-8", SPEED_400000, modes400G8},
}};

LinkModeMask maskOfBits(std::span<int const> bits) {
  LinkModeMask result;
  for (int const bit : bits) result.set(static_cast<std::size_t>(bit));
  return result;
}

// What a port supports includes its sockets. Drivers that do not say are judged by the socket in use, which
// is twisted pair when the driver does not know; then there has to be a mode for it.
bool isBaseT(LinkSettings const& settings) {
  bool const fibre = settings.supported[ETHTOOL_LINK_MODE_FIBRE_BIT];
  if (fibre || settings.supported[ETHTOOL_LINK_MODE_TP_BIT]) return !fibre;
  return settings.port == PORT_TP && (settings.supported & maskOfBits(modesBaseT)).any();
}

}  // namespace

std::span<LinkModeEntry const> linkModeTable() { return table; }

LinkModeMask maskOf(LinkModeEntry const& entry) { return maskOfBits(entry.bits); }

LinkModeMask const& speedModes() {
  static LinkModeMask const all = [] {
    LinkModeMask result;
    for (auto const& entry : table) result |= maskOf(entry);
    return result;
  }();
  return all;
}

Interface::EthLinkModeSet linkModeCapabilities(LinkSettings const& settings) {
  Interface::EthLinkModeSet result;
  for (auto const& entry : table) result.*entry.member = (settings.supported & maskOf(entry)).any();
  return result;
}

Interface::AutonegCapability autonegCapability(LinkSettings const& settings) {
  if (isBaseT(settings)) return Interface::AutonegCapability::baseT;
  bool const capable = settings.supported[ETHTOOL_LINK_MODE_Autoneg_BIT];
  return capable ? Interface::AutonegCapability::capable : Interface::AutonegCapability::none;
}

}  // namespace Linux
