// Speeds: what a device can do, and setting it. A TAP device takes and reports whatever it is given, so it
// stands for a port once it has been told what it supports; a veth refuses all of it.
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/if_tun.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cstring>

#include "platform/linux/LinkModeSetting.h"
#include "platform/linux/LinkModeTable.h"
#include "tests/unit/linux/NetworkTest.h"

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
    if (!reason.empty()) {
      EXPECT_EQ(settings, found) << text;
      return reason;
    }
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
           {"was autoneg on advertising 512", "not understood"},
           {"was autoneg off advertising", "not understood"},
           {"", "not understood"}}) {
    EXPECT_EQ(asked(text), expected) << text;
  }
}

// Tells a TAP device which link modes to say that it supports: it takes over all that it is handed.
void supportedIs(char const* device, std::vector<int> const& linkModes) {
  constexpr std::size_t base = sizeof(ethtool_link_settings) / sizeof(std::uint32_t);
  alignas(ethtool_link_settings) std::uint32_t words[base + 3 * 127] = {};
  auto& settings = *reinterpret_cast<ethtool_link_settings*>(words);
  Descriptor const socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  auto const call = [&](std::uint32_t command) {
    ifreq request{};
    std::strcpy(request.ifr_name, device);
    request.ifr_data = reinterpret_cast<char*>(words);
    settings.cmd = command;
    ASSERT_EQ(ioctl(socket.get(), SIOCETHTOOL, &request), 0) << std::strerror(errno);
  };
  call(ETHTOOL_GLINKSETTINGS);  // how many words a mask has
  settings.link_mode_masks_nwords = static_cast<__s8>(-settings.link_mode_masks_nwords);
  call(ETHTOOL_GLINKSETTINGS);
  std::fill_n(words + base, settings.link_mode_masks_nwords, 0U);
  for (int const mode : linkModes) words[base + static_cast<std::size_t>(mode / 32)] |= 1U << mode % 32;
  call(ETHTOOL_SLINKSETTINGS);
}

class LinkModesTest : public NetworkTest {
 protected:
  // A port that supports 10, 25 and 40 gigabit and negotiates, and was found forced to 10 gigabit.
  void prepare() override {
    tap = Descriptor(open("/dev/net/tun", O_RDWR | O_CLOEXEC));
    ifreq request{};
    std::strcpy(request.ifr_name, "eth1");
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    ASSERT_EQ(ioctl(tap.get(), TUNSETIFF, &request), 0) << std::strerror(errno);
    supportedIs("eth1", {ETHTOOL_LINK_MODE_10000baseSR_Full_BIT, ETHTOOL_LINK_MODE_25000baseCR_Full_BIT,
                         ETHTOOL_LINK_MODE_40000baseCR4_Full_BIT, ETHTOOL_LINK_MODE_Autoneg_BIT,
                         ETHTOOL_LINK_MODE_FIBRE_BIT});
  }

  static std::string settings() {
    LinkModeSetting setting;
    return setting.read(static_cast<int>(if_nametoindex("eth1")), "").value_or("none");
  }
  Interface::EthPhyIntfConfig& config() const { return *entities.ethPhyIntfConfigDir->intfConfig(port1); }
  std::string capabilities() const {
    auto const status = entities.ethPhyIntfStatusDir->intfStatus(port1);
    return shown(status->linkModeCapabilities()) + stringValue(status->autonegCapability());
  }

  Descriptor tap;
  std::string const found = "was autoneg off speed 10000 duplex 1 advertising";
};

TEST_F(LinkModesTest, AreSetReadAgainAndPutBack) {
  using enum Interface::EthLinkMode;
  cable("2");
  Warned const warned;
  start();
  EXPECT_EQ(capabilities(), "10g 25g 40g capable");
  EXPECT_EQ(settings(), found);
  config().linkModeLocalIs(linkModeAutoneg);
  config().advertisedModesLocalIs({.mode25G = true});
  config().advertisedModesConfiguredLocalIs(true);
  expectSoon(settings, "was autoneg on advertising 6 31");
  config().linkModeLocalIs(linkModeAutoneg40G);
  expectSoon(settings, "was autoneg on advertising 6 24");
  config().linkModeLocalIs(linkModeDefault);
  expectSoon(settings, found);
  EXPECT_EQ(warned.text(), "");

  // A refusal is a warning, and holds up no other port; the default asks nothing of the driver.
  std::string const refused =
      "PORT_SETTING_FAILED: Cannot set link_mode of device eth2 to forced 10g: the device does not support "
      "it\n";
  auto& veth = *entities.ethPhyIntfConfigDir->intfConfig(port2);
  veth.linkModeLocalIs(linkMode10G);
  expectSoon([&] { return warned.text(); }, refused);
  veth.linkModeLocalIs(linkModeDefault);
  config().linkModeLocalIs(linkMode25G);
  expectSoon(settings, "was autoneg off speed 25000 duplex 1 advertising");
  EXPECT_EQ(warned.text(), refused);

  supportedIs("eth1", {ETHTOOL_LINK_MODE_10000baseSR_Full_BIT, ETHTOOL_LINK_MODE_FIBRE_BIT});
  ip("link set eth1 up");
  expectSoon([this] { return capabilities(); }, "10g none");
  adapter = nullptr;
  EXPECT_EQ(settings(), found) << "when the adapter ends";
}

TEST(LinkModes, AreTakenWhenTheDriverSaysSoOrCannotTell) {
  LinkModeMask const some = bits({ETHTOOL_LINK_MODE_25000baseCR_Full_BIT});
  LinkModeMask const others = bits({ETHTOOL_LINK_MODE_10000baseSR_Full_BIT});
  auto const taken = [](LinkSettings const& wanted, bool autoneg, int speed,
                        LinkModeMask const& advertising) {
    return linkModeTaken(wanted, {.autoneg = autoneg,
                                  .speed = static_cast<std::uint32_t>(speed),
                                  .supported = {},
                                  .advertising = advertising});
  };
  LinkSettings const forced{.autoneg = false, .speed = 25000, .supported = {}, .advertising = {}};
  LinkSettings const negotiated{.autoneg = true, .speed = 0, .supported = {}, .advertising = some};
  EXPECT_TRUE(taken(forced, false, 25000, others));
  EXPECT_TRUE(taken(forced, false, SPEED_UNKNOWN, {}));
  EXPECT_FALSE(taken(forced, false, 10000, {}));
  EXPECT_FALSE(taken(forced, true, 25000, {}));
  EXPECT_TRUE(taken(negotiated, true, 10000, some));
  EXPECT_FALSE(taken(negotiated, true, 0, others));
}

}  // namespace
}  // namespace Linux
