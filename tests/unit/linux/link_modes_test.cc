// Speeds: what follows from what a device says of itself, and what it is asked for.
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include "platform/linux/links/LinkModes.h"
#include "platform/linux/settings/SettingKinds.h"

namespace Linux {
namespace {

LinkModeMask bits(std::vector<int> const& numbers) {
  LinkModeMask result;
  for (int const number : numbers) result.set(static_cast<std::size_t>(number));
  return result;
}

std::string shown(Interface::EthLinkModeSet const& modes) {
  std::string out;
  for (auto const& entry : linkModeTable()) {
    if (modes.*entry.member) out += std::string(entry.word) + " ";
  }
  return out;
}

TEST(LinkModes, FollowFromWhatTheDeviceSupports) {
  constexpr int autoneg = ETHTOOL_LINK_MODE_Autoneg_BIT;
  constexpr int twistedPair = ETHTOOL_LINK_MODE_TP_BIT;
  constexpr int fibre = ETHTOOL_LINK_MODE_FIBRE_BIT;
  constexpr int baseT10g = ETHTOOL_LINK_MODE_10000baseT_Full_BIT;
  constexpr int copper25g = ETHTOOL_LINK_MODE_25000baseCR_Full_BIT;
  std::vector<int> const nine{
      ETHTOOL_LINK_MODE_10000baseLRM_Full_BIT,  ETHTOOL_LINK_MODE_25000baseSR_Full_BIT,
      ETHTOOL_LINK_MODE_40000baseCR4_Full_BIT,  ETHTOOL_LINK_MODE_50000baseKR2_Full_BIT,
      ETHTOOL_LINK_MODE_50000baseDR_Full_BIT,   ETHTOOL_LINK_MODE_100000baseLR4_ER4_Full_BIT,
      ETHTOOL_LINK_MODE_100000baseCR2_Full_BIT, ETHTOOL_LINK_MODE_200000baseSR4_Full_BIT,
      ETHTOOL_LINK_MODE_400000baseCR8_Full_BIT, fibre};
  std::vector<int> const otherLanes{ETHTOOL_LINK_MODE_100000baseKR_Full_BIT,
                                    ETHTOOL_LINK_MODE_400000baseKR4_Full_BIT,
                                    ETHTOOL_LINK_MODE_1000baseX_Full_BIT};
  using Case = std::tuple<char const*, std::vector<int>, std::uint8_t, char const*, char const*>;
  for (auto const& [what, supported, port, capabilities, negotiation] : std::vector<Case>{
           {"nothing known, as of a veth", {}, PORT_TP, "", "none"},
           {"each of the nine", nine, PORT_FIBRE, "10g 25g 40g 50g 50g-1 100g 100g-2 200g-4 400g-8 ", "none"},
           {"modes of other lanes are not among them", otherLanes, PORT_FIBRE, "", "none"},
           {"direct attach that negotiates", {copper25g, autoneg, fibre}, PORT_DA, "25g ", "capable"},
           {"Base-T", {ETHTOOL_LINK_MODE_1000baseT_Full_BIT, autoneg, twistedPair}, PORT_TP, "", "baseT"},
           {"Base-T that does not name its socket", {baseT10g, autoneg}, PORT_TP, "10g ", "baseT"},
           {"old driver of a fibre port", {baseT10g, autoneg, fibre}, PORT_FIBRE, "10g ", "capable"},
           {"socket unknown", {copper25g, autoneg}, PORT_TP, "25g ", "capable"}}) {
    LinkSettings const settings{.port = port, .supported = bits(supported), .advertising = {}};
    EXPECT_EQ(shown(linkModeCapabilities(settings)), capabilities) << what;
    EXPECT_EQ(stringValue(autonegCapability(settings)), negotiation) << what;
  }
}

TEST(LinkModes, AreAskedForWithoutTouchingTheRest) {
  constexpr int pause = ETHTOOL_LINK_MODE_Pause_BIT;
  constexpr auto unknown = static_cast<std::uint32_t>(SPEED_UNKNOWN);
  LinkSettings const found{
      .autoneg = false,
      .speed = unknown,
      .duplex = 0xff,
      .port = PORT_FIBRE,
      .supported = bits({ETHTOOL_LINK_MODE_25000baseCR_Full_BIT, ETHTOOL_LINK_MODE_25000baseSR_Full_BIT,
                         ETHTOOL_LINK_MODE_10000baseSR_Full_BIT, pause}),
      .advertising = bits({ETHTOOL_LINK_MODE_10000baseSR_Full_BIT, pause})};
  // autoneg, speed, duplex, advertised; or the refusal.
  auto const asked = [&](std::string const& text) {
    LinkSettings settings = found;
    std::string reason = applyLinkModeText(text, settings);
    if (!reason.empty()) return reason;
    std::string out = (settings.autoneg ? "auto " : "forced ") +
                      (settings.speed == unknown ? "?" : std::to_string(settings.speed)) + " " +
                      std::to_string(settings.duplex) + ":";
    for (std::size_t bit = 0; bit < settings.advertising.size(); ++bit) {
      if (settings.advertising[bit]) out += " " + std::to_string(bit);
    }
    return out;
  };
  for (auto const& [text, expected] : std::vector<std::pair<char const*, char const*>>{
           {"forced 25g", "forced 25000 1: 13 43"},
           {"auto 25g", "auto ? 255: 6 13 31 33"},
           {"auto 25g 10g", "auto ? 255: 6 13 31 33 43"},
           {"auto", "auto ? 255: 6 13 31 33 43"},
           {"was autoneg on advertising 6 31", "auto ? 255: 6 31"},
           {"was autoneg off speed 10000 duplex 1 advertising", "forced 10000 1:"},
           // A port that had no link did not tell its speed: it gets its highest.
           {"was autoneg off speed 4294967295 duplex 255 advertising 13", "forced 25000 255: 13"},
           {"forced 40g", "the device does not support it"},
           {"forced 26g", "unknown speed '26g'"},
           {"", "not understood"}}) {
    EXPECT_EQ(asked(text), expected) << text;
  }
}

TEST(LinkModes, AreTakenWhenTheDriverSaysSoOrCannotTell) {
  LinkModeMask const some = bits({ETHTOOL_LINK_MODE_25000baseCR_Full_BIT});
  LinkModeMask const others = bits({ETHTOOL_LINK_MODE_10000baseSR_Full_BIT});
  auto const settings = [](bool autoneg, int speed, LinkModeMask const& advertising) {
    return LinkSettings{.autoneg = autoneg,
                        .speed = static_cast<std::uint32_t>(speed),
                        .supported = {},
                        .advertising = advertising};
  };
  LinkSettings const forced = settings(false, 25000, {}), negotiated = settings(true, 0, some);
  EXPECT_TRUE(linkModeTaken(forced, settings(false, 25000, others)));
  EXPECT_TRUE(linkModeTaken(forced, settings(false, SPEED_UNKNOWN, {})));
  EXPECT_FALSE(linkModeTaken(forced, settings(false, 10000, {})));
  EXPECT_FALSE(linkModeTaken(forced, settings(true, 25000, {})));
  EXPECT_TRUE(linkModeTaken(negotiated, settings(true, 10000, some)));
  EXPECT_FALSE(linkModeTaken(negotiated, settings(true, 0, others)));
}

TEST(LinkModes, StayKnownUnlessTheDriverHasNone) {
  Interface::EthPhyIntfStatus status{Wire::IntfId("Ethernet1")};
  for (auto const& [device, expected] : {std::pair("gone", "25g capable"), std::pair("lo", "none")}) {
    status.linkModeCapabilitiesIs({.mode25G = true});
    status.autonegCapabilityIs(Interface::AutonegCapability::capable);
    readLinkModes(device, status);
    EXPECT_EQ(shown(status.linkModeCapabilities()) + stringValue(status.autonegCapability()), expected);
  }
}

}  // namespace
}  // namespace Linux
