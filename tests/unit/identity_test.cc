// The events that tell of the identity that an answer brings, and the MTU of a VLAN interface. The simulated
// runs show that all of an identity is applied and taken back.
#include "platform/statebase/InitialValues.h"
#include "platform/statebase/Tree.h"
#include "tests/unit/support/Ports.h"
#include "tests/unit/support/Transcript.h"

class Identity : public PortTest {
 protected:
  Identity() { begin(); }

  // A run of its own that asks on Ethernet1.
  void begin() {
    startOver();
    addPort("Ethernet1", routed);
    platform.epicd->intfConfigIs(id("Ethernet1"));
    inQuery();
    events.clear();
  }
  // Gives the answers, in JSON by family and device, and returns the events.
  Strings told(std::string const& answers) {
    Statebase::Tree tree;
    tree.mount("/dhcpStatus", platform.dhcpStatus, Statebase::Access::rootWrites);
    flash.write("/answers", R"({"/dhcpStatus": )" + answers + "}");
    Statebase::applyInitialValues(tree, flash.path("/answers"));
    time.settle();
    return takeEvents();
  }
};

TEST_F(Identity, is_told_with_its_family) {
  for (auto const& [answers, event] : transcript("identity.txt")) {
    begin();
    EXPECT_EQ(told(answers), Strings{event.substr(0, event.size() - 1)});
  }
}

TEST_F(Identity, that_never_becomes_active_is_taken_back_with_the_routes_of_others) {
  told(R"({"intfDhcpStatus": {"dev-Ethernet1": {"addrWithMask": "10.0.0.5/24", "bootFileName": "http://h/c",
           "loggingHost": {"10.0.0.4": {"host": "10.0.0.4", "port": 514}}}}})");
  platform.routingConfig->routeList()->routeIs(*Wire::IpAddrWithMask::fromString("192.0.2.0/24"),
                                               Routing::RouteType::forward);
  EXPECT_FALSE(platform.sysLoggingConfig->vrfLoggingHost().empty());
  time.advance(60);
  EXPECT_TRUE(platform.routingConfig->routeList()->route().empty());
  EXPECT_TRUE(platform.sysLoggingConfig->vrfLoggingHost().empty());
}

TEST_F(Identity, gives_its_mtu_to_a_vlan_interface) {
  auto const vlan = platform.vicd->intfConfigIs(id("Ethernet1"));
  told(R"({"intfDhcp6Status": {"dev-Ethernet1": {"mtu": 1400, "bootFileName": "c"}}})");
  EXPECT_EQ(vlan->mtu(), 1400);
  EXPECT_EQ(platform.epicd->intfConfig(id("Ethernet1"))->mtu(), 1500);
  platform.config->enabledIs(false);
  EXPECT_EQ(vlan->mtu(), 1500);
}
