// Which interfaces take part, what is configured on them, and when the view of them is frozen.
#include "tests/unit/support/Ports.h"

class Intf : public PortTest {};

TEST_F(Intf, the_set_up_pass_configures_every_port_and_registers_the_routed_ones) {
  addPort("Ethernet1", routed);
  addPort("Ethernet2", bridged);
  addPort("Management1", unconfigured);
  addLag("Port-Channel1", routed);
  inSetup();
  for (char const* const name : {"Ethernet1", "Ethernet2", "Management1", "Port-Channel1"}) {
    auto const ip6 = platform.ip6Config->intf(id(name));
    ASSERT_TRUE(ip6) << name;
    EXPECT_EQ(ip6->l3Config(), platform.l3ConfigDir->intfConfig(id(name)));
    EXPECT_TRUE(ip6->enable());
    EXPECT_EQ(ip6->addrSource(), Ip6::AddrSource::routerAdvertisement);
    EXPECT_TRUE(ip6->acceptRaDefRtr());
  }
  EXPECT_EQ(registered(), "Ethernet1 Port-Channel1");
  EXPECT_EQ(known(), "Ethernet1 Ethernet2 Management1");
  EXPECT_EQ(socketsWanted(), "Ethernet1 Ethernet2 Management1");
  EXPECT_EQ(sm().phyIntfStatus(id("Ethernet1"))->kernelIntfName(), "dev-Ethernet1");
}

TEST_F(Intf, management_ports_can_be_left_out_but_are_configured_all_the_same) {
  environment.set("ZEROTOUCH_IGNORE_MANAGEMENT", "");
  addPort("Management1", routed);
  addPort("Managemen1", routed);
  inSetup();
  EXPECT_EQ(registered(), "Managemen1");
  EXPECT_EQ(known(), "Managemen1");
  EXPECT_EQ(socketsWanted(), "Managemen1");
  EXPECT_TRUE(platform.ip6Config->intf(id("Management1"))->enable());
}

TEST_F(Intf, ports_are_followed_while_the_view_is_live) {
  auto const port = addPort("Ethernet1", unconfigured);
  inSetup();
  EXPECT_EQ(registered(), "");
  port->forwardingModelIs(routed);
  EXPECT_EQ(registered(), "Ethernet1");
  port->forwardingModelIs(bridged);
  EXPECT_EQ(registered(), "");
  addPort("Ethernet2", routed);
  addLag("Port-Channel1", routed);
  EXPECT_EQ(registered(), "Ethernet2 Port-Channel1");
  removePort("Ethernet1");
  removePort("Ethernet2");
  removeLag("Port-Channel1");
  EXPECT_EQ(registered() + known() + socketsWanted(), "");
  EXPECT_TRUE(sm().lagIntfStatus().empty() && sm().linkModesOnIntf().empty() &&
              sm().nextLinkModeForIntf().empty());
}

TEST_F(Intf, what_changes_while_the_view_is_frozen_is_looked_at_on_the_next_retry) {
  auto const turns = addPort("Ethernet1", bridged);
  addPort("Ethernet2", routed);
  auto const steady = addPort("Ethernet3", routed);
  inSetup();
  sm().currentStateIs(State::stateDhcpQuery);
  sm().doCancelTimer();
  turns->forwardingModelIs(routed);
  removePort("Ethernet2");
  addLag("Port-Channel1", routed);
  addPort("Ethernet4", routed);
  auto const replaced = replacePort("Ethernet3", routed);
  EXPECT_EQ(registered(), "Ethernet2 Ethernet3");
  EXPECT_EQ(sm().phyIntfStatus(id("Ethernet3"))->ethIntfStatus(), steady);

  sm().doStateTransition(State::stateDhcpQuery, State::stateRetry, ZeroTouch::TransitionCause::noBootFile);
  time.settle();
  EXPECT_EQ(registered(), "Ethernet1 Ethernet3 Ethernet4 Port-Channel1");
  EXPECT_EQ(known(), "Ethernet1 Ethernet3 Ethernet4");
  EXPECT_EQ(sm().phyIntfStatus(id("Ethernet3"))->ethIntfStatus(), replaced);
  EXPECT_TRUE(platform.ip6Config->intf(id("Ethernet4"))->enable());
}
