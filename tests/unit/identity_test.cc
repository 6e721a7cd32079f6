// The events that tell of the identity that an answer brings, and the MTU of a VLAN interface. The simulated
// runs show that all of an identity is applied and taken back.
#include "tests/unit/support/Ports.h"

class Identity : public PortTest {
 protected:
  Identity() {
    addPort("Ethernet1", routed);
    platform.epicd->intfConfigIs(id("Ethernet1"));
    inQuery();
    events.clear();
  }
  Kel::Ptr<ZeroTouch::IntfDhcpStatus> answer4() {
    return platform.dhcpStatus->intfDhcpStatusIs("dev-Ethernet1");
  }
  Kel::Ptr<ZeroTouch::IntfDhcpStatus> answer6() {
    return platform.dhcpStatus->intfDhcp6StatusIs("dev-Ethernet1");
  }
  static Wire::IpGenAddr ip(std::string const& text) { return *Wire::IpGenAddr::fromString(text); }
  static Wire::IpAddrWithMask prefix(std::string const& text) {
    return *Wire::IpAddrWithMask::fromString(text);
  }
};

TEST_F(Identity, of_dhcpv4_is_told_and_goes_before_that_of_dhcpv6) {
  auto const answer = answer4();
  answer->mtuIs(9000);
  answer->addrWithMaskIs(Wire::IpGenAddrWithMask(prefix("10.0.0.5/24")));
  answer->hostnameIs("sw1");
  answer->nameServerIs(0, ip("10.0.0.2"));
  answer->nameServerIs(1, ip("10.0.0.3"));
  answer->loggingHostIs("10.0.0.4", {"10.0.0.4", 514});
  answer->domainNameIs("example.net");
  answer->staticRouteIs(0, {prefix("10.1.0.0/16"), ip("10.0.0.9").v4()});
  answer->gatewayIs(0, ip("10.0.0.1"));
  answer->gatewayIs(1, ip("10.0.0.254"));
  answer->serverNameIs("10.0.0.1");
  answer6()->bootFileNameIs("http://six");
  answer->bootFileNameIs("cfg");
  time.settle();
  EXPECT_EQ(takeEvents(),
            Strings{"ZTP_DHCPv4_SUCCESS: DHCPv4 response received on Ethernet1  [ Mtu: 9000; Ip Address: "
                    "10.0.0.5/24; Hostname: sw1; Nameserver: 10.0.0.2; Nameserver: 10.0.0.3; Logserver: "
                    "10.0.0.4; Domain: example.net; Route: key=10.1.0.0/16, hop=10.0.0.9; Gateway: 10.0.0.1; "
                    "Gateway: 10.0.0.254; Boot File: tftp://10.0.0.1/cfg ]"});
  // Somebody else's route goes too. The address never becomes active, so the timer takes all back.
  platform.routingConfig->routeList()->routeIs(prefix("192.0.2.0/24"), Routing::RouteType::forward);
  time.advance(60);
  EXPECT_TRUE(platform.routingConfig->routeList()->route().empty());
  EXPECT_TRUE(platform.sysLoggingConfig->vrfLoggingHost().empty());
}

TEST_F(Identity, of_dhcpv6_is_less) {
  auto const answer = answer6();
  answer->addrWithMaskIs(*Wire::IpGenAddrWithMask::fromString("2001:db8::5/128"));
  answer->nameServerIs(0, ip("2001:db8::1"));
  answer->domainNameIs("example.net");
  answer->hostnameIs("ignored");
  answer->gatewayIs(0, ip("10.0.0.1"));
  answer->bootFileNameIs("http://h/c");
  time.settle();
  EXPECT_EQ(
      takeEvents(),
      Strings{"ZTP_DHCPv6_SUCCESS: DHCPv6 response received on Ethernet1  [ Ip Address: "
              "2001:db8::5/128; Nameserver: 2001:db8::1; Domain: example.net; Boot File: http://h/c ]"});
}

TEST_F(Identity, without_an_address_is_stateless_and_a_vlan_interface_takes_the_mtu) {
  auto const vlan = platform.vicd->intfConfigIs(id("Ethernet1"));
  answer6()->mtuIs(1400);
  answer6()->bootFileNameIs("c");
  time.settle();
  EXPECT_EQ(vlan->mtu(), 1400);
  EXPECT_EQ(platform.epicd->intfConfig(id("Ethernet1"))->mtu(), 1500);
  EXPECT_EQ(takeEvents(),
            Strings{"ZTP_STATELESS_DHCPv6_SUCCESS: DHCPv6 response with stateless configuration "
                    "parameters received on Ethernet1  [ Mtu: 1400; Boot File: c ]"});
  platform.config->enabledIs(false);
  EXPECT_EQ(vlan->mtu(), 1500);
}
