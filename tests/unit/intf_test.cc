// Which speeds ports are tried at, when, and which ports are left alone. The simulated runs show which
// ports are known, registered and set up.
#include <algorithm>
#include <iterator>

#include "tests/unit/support/Ports.h"
#include "tests/unit/support/Transcript.h"

using Autoneg = Interface::AutonegCapability;
using Mode = Interface::EthLinkMode;

class Intf : public PortTest {
 protected:
  // The mode and, if it is a negotiated one, what is advertised.
  std::string configured(std::string const& name) {
    auto const config = platform.epicd->intfConfig(id(name));
    if (!config) return "nothing";
    std::string text = stringValue(config->linkModeLocal());
    auto const& advertised = config->advertisedModesLocal();
    if (config->linkModeLocal() == Mode::linkModeAutoneg) {
      text += std::string(advertised.mode25G ? " 25g" : "") + (advertised.mode100G ? " 100g" : "");
    }
    return text;
  }
  std::string spared() { return names(sm().intfNoSpeedChangePool()); }
};

// Of each port its negotiation and its speeds, and then, toggle for toggle, the event and what is configured.
TEST_F(Intf, each_port_walks_through_its_own_cycle) {
  std::map<std::string, Autoneg> const kinds{
      {"none", Autoneg::none}, {"capable", Autoneg::capable}, {"baseT", Autoneg::baseT}};
  for (auto const& [port, cycle] : transcript("speeds.txt")) {
    std::istringstream words(port);
    std::string kind, seen;
    words >> kind;
    addPort("Ethernet1", routed, Strings(std::istream_iterator<std::string>(words), {}), kinds.at(kind));
    inSetup();
    events.clear();
    for (auto toggles = std::ranges::count(cycle, '\n'); toggles > 0; --toggles) {
      sm().toggleIntfSpeed();
      for (auto const& event : takeEvents()) seen += event + ": ";
      seen += configured("Ethernet1") + "\n";
    }
    EXPECT_EQ(seen, cycle) << port;
    startOver();
  }
}

TEST_F(Intf, the_first_retry_toggles_and_then_every_sixth_and_ports_share_events) {
  addPort("Ethernet1", routed, {"10g"});
  addPort("Ethernet2", bridged, {"10g", "25g"});
  addPort("Ethernet3", routed, {"25g"});
  inSetup();
  std::map<std::uint32_t, Strings> toggled;  // by the retry
  for (std::uint32_t retry = 1; retry <= 12; ++retry) {
    ASSERT_TRUE(time.advanceUntil([&] { return sm().retryCount() == retry; }, 100));
    for (auto const& event : takeEvents()) {
      std::string const text = "ZTP_INTERFACE_SPEED: Setting interface speed to ";
      if (event.starts_with(text)) toggled[retry].push_back(event.substr(text.size()));
    }
  }
  EXPECT_EQ(toggled, (std::map<std::uint32_t, Strings>{
                         {1, {"default speed for [Ethernet1, Ethernet2, Ethernet3]"}},
                         {7, {"forced 10g for [Ethernet1, Ethernet2]", "forced 25g for [Ethernet3]"}}}));
}

TEST_F(Intf, a_port_with_a_link_or_an_inactive_one_is_left_alone) {
  auto const port = addPort("Ethernet1", routed, {"10g"});
  auto const inactive = addPort("Ethernet2", routed, {"10g"});
  auto const tenAndForty = addPort("Ethernet3", routed, {"10g", "40g"});
  inactive->activeIs(false);
  port->linkStatusIs(Interface::LinkStatus::up);
  tenAndForty->linkStatusIs(Interface::LinkStatus::up);
  inSetup();
  EXPECT_EQ(spared(), "Ethernet1 Ethernet2");
  events.clear();
  sm().toggleIntfSpeed();
  EXPECT_EQ(takeEvents(),
            Strings{"ZTP_INTERFACE_SPEED: Setting interface speed to default speed for [Ethernet3]"});

  time.advance(119);
  EXPECT_EQ(spared(), "Ethernet1 Ethernet2");
  port->linkStatusIs(Interface::LinkStatus::down);  // a flap: the 120 seconds start again
  EXPECT_EQ(spared(), "Ethernet2");
  port->linkStatusIs(Interface::LinkStatus::up);
  time.advance(119);
  EXPECT_EQ(spared(), "Ethernet1 Ethernet2");
  time.advance(1);
  EXPECT_EQ(spared(), "Ethernet2");
  inactive->linkModeCapabilitiesIs({.mode10G = true, .mode40G = true});
  inactive->activeIs(true);
  inactive->linkStatusIs(Interface::LinkStatus::up);
  EXPECT_EQ(spared(), "") << "a port found to run at 10 and 40 gigabit";
}

TEST_F(Intf, the_next_run_spares_what_the_disabled_one_did) {
  addPort("Ethernet1", routed, {"10g"})->linkStatusIs(Interface::LinkStatus::up);
  auto const inactive = addPort("Ethernet2", routed, {"10g"});
  inactive->activeIs(false);
  auto const gone = addPort("Ethernet3", routed, {"10g"});
  gone->linkStatusIs(Interface::LinkStatus::up);
  inSetup();
  gone->linkStatusIs(Interface::LinkStatus::down);
  time.advance(20);
  platform.config->enabledIs(false);
  EXPECT_EQ(spared(), "");
  time.advance(20);
  platform.config->enabledIs(true);
  time.settle();
  EXPECT_EQ(spared(), "Ethernet1 Ethernet2");
  time.advance(80);  // 120 seconds after the link came up
  EXPECT_EQ(spared(), "Ethernet2");
}

TEST_F(Intf, new_capabilities_restart_the_cycle) {
  auto const port = addPort("Ethernet1", routed, {"10g"});
  inSetup();
  sm().toggleIntfSpeed();
  sm().toggleIntfSpeed();
  port->linkModeCapabilitiesIs({.mode25G = true});
  EXPECT_EQ(sm().nextLinkModeForIntf(id("Ethernet1")), Mode::linkModeDefault);
  sm().toggleIntfSpeed();
  sm().toggleIntfSpeed();
  EXPECT_EQ(configured("Ethernet1"), "linkMode25G");
}

TEST_F(Intf, management_ports_can_be_left_out_but_are_set_up_all_the_same) {
  environment.set("ZEROTOUCH_IGNORE_MANAGEMENT", "");
  addPort("Management1", routed);
  addPort("Managemen1", routed);
  inSetup();
  EXPECT_EQ(names(sm().intfStatus()), "Managemen1");
  EXPECT_EQ(names(sm().phyIntfStatus()), "Managemen1");
  EXPECT_EQ(names(sm().pamDesiredIntfDir()->intfDesired()), "Managemen1");
  EXPECT_TRUE(platform.ip6Config->intf(id("Management1"))->enable());
}
