// The identity that an answer brings: what is written, told and taken back.
#include "tests/unit/support/Ports.h"

class Identity : public PortTest {
 protected:
  using Answer = Kel::Ptr<ZeroTouch::IntfDhcpStatus>;

  Answer answer4() { return platform.dhcpStatus->intfDhcpStatusIs("dev-Ethernet1"); }
  Answer answer6() { return platform.dhcpStatus->intfDhcp6StatusIs("dev-Ethernet1"); }
  // In the middle of a query on Ethernet1, until a boot-file name moves it on.
  Sm& inQuery() {
    auto const port = addPort("Ethernet1", routed);
    platform.epicd->intfConfigIs(id("Ethernet1"));
    inSetup();
    time.advance(30);
    events.clear();
    return sm();
  }
  static Wire::IpGenAddr ip(std::string const& text) { return *Wire::IpGenAddr::fromString(text); }
  static Wire::IpAddrWithMask prefix(std::string const& text) {
    return *Wire::IpAddrWithMask::fromString(text);
  }

  // All that the identity consists of, as one text.
  std::string applied() {
    std::string result = "mtu=" + std::to_string(platform.epicd->intfConfig(id("Ethernet1"))->mtu());
    if (auto const config = platform.ipConfig->ipIntfConfig(id("Ethernet1")))
      result += " ip=" + config->addrWithMask().stringValue();
    if (auto const config = platform.ip6Config->intf(id("Ethernet1"))) {
      for (auto const& [addr, on] : config->addr()) result += " ip6=" + addr.stringValue();
    }
    auto const net = platform.netConfig;
    if (!net->hostname().empty()) result += " host=" + net->hostname();
    if (!net->domainName().empty()) result += " domain=" + net->domainName();
    for (auto const& [index, server] : net->nameServer())
      result += " ns" + std::to_string(index) + "=" + server.stringValue();
    for (auto const& [index, server] : net->v6NameServer())
      result += " ns6" + std::to_string(index) + "=" + server.stringValue();
    for (auto const& [vrf, servers] : platform.logConfig->vrfLoggingHost()) {
      for (auto const& [name, host] : servers->loggingHost())
        result += " log=" + vrf.stringValue() + ":" + host.host + ":" + std::to_string(host.port);
    }
    for (auto const& [key, route] : platform.routingConfig->routeList()->route()) {
      result += " route=" + key.stringValue();
      for (auto const& [via, on] : route->via()) result += ">" + via.stringValue();
    }
    return result;
  }
};

TEST_F(Identity, everything_that_a_v4_answer_brings_is_applied_and_taken_back) {
  inQuery();
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
  answer6()->bootFileNameIs("http://six");  // DHCPv4 wins, though it comes second
  answer->bootFileNameIs("cfg");
  time.settle();
  EXPECT_EQ(sm().currentState(), State::stateSetupSystemIdentity);
  EXPECT_EQ(applied(),
            "mtu=9000 ip=10.0.0.5/24 host=sw1 domain=example.net ns0=10.0.0.2 ns1=10.0.0.3 "
            "log=default:10.0.0.4:514 route=0.0.0.0/0>10.0.0.1>10.0.0.254 route=10.1.0.0/16>10.0.0.9");
  EXPECT_EQ(platform.ipConfig->ipIntfConfig(id("Ethernet1"))->l3Config(),
            platform.l3ConfigDir->intfConfig(id("Ethernet1")));
  EXPECT_EQ(takeEvents(),
            Strings{"ZTP_DHCPv4_SUCCESS: DHCPv4 response received on Ethernet1  [ Mtu: 9000; Ip Address: "
                    "10.0.0.5/24; Hostname: sw1; Nameserver: 10.0.0.2; Nameserver: 10.0.0.3; Logserver: "
                    "10.0.0.4; Domain: example.net; Route: key=10.1.0.0/16, hop=10.0.0.9; Gateway: 10.0.0.1; "
                    "Gateway: 10.0.0.254; Boot File: tftp://10.0.0.1/cfg ]"});
  EXPECT_EQ(runningTimer(), "SystemIdentitySetupTimer");
  // Somebody else's route goes too. The address never becomes active, so the timer takes all back.
  platform.routingConfig->routeList()->routeIs(prefix("192.0.2.0/24"), Routing::RouteType::forward);
  time.advance(60);
  EXPECT_EQ(sm().currentState(), State::stateRetry);
  EXPECT_EQ(applied(), "mtu=1500 ip=0.0.0.0/32");
  EXPECT_TRUE(platform.logConfig->vrfLoggingHost().empty());
}

TEST_F(Identity, a_v6_answer_brings_less_and_is_undone_when_its_record_is_gone) {
  inQuery();
  auto const answer = answer6();
  answer->addrWithMaskIs(*Wire::IpGenAddrWithMask::fromString("2001:db8::5/128"));
  answer->nameServerIs(0, ip("2001:db8::1"));
  answer->domainNameIs("example.net");
  answer->hostnameIs("ignored");
  answer->loggingHostIs("ignored", {"ignored", 514});
  answer->gatewayIs(0, ip("10.0.0.1"));
  answer->bootFileNameIs("http://h/c");
  time.settle();
  EXPECT_EQ(applied(), "mtu=1500 ip6=2001:db8::5/128 domain=example.net ns60=2001:db8::1");
  EXPECT_EQ(
      takeEvents(),
      Strings{"ZTP_DHCPv6_SUCCESS: DHCPv6 response received on Ethernet1  [ Ip Address: "
              "2001:db8::5/128; Nameserver: 2001:db8::1; Domain: example.net; Boot File: http://h/c ]"});
  platform.dhcpStatus->intfDhcp6StatusDelAll();
  sm().choosenIntfIs(nullptr);
  sm().doUnconfigureSystemIdentity();
  EXPECT_EQ(applied(), "mtu=1500");
}

TEST_F(Identity, a_vlan_interface_takes_the_mtu_and_a_stateless_answer_no_address) {
  inQuery();
  auto const vlan = platform.vicd->intfConfigIs(id("Ethernet1"));
  answer6()->mtuIs(1400);
  answer6()->bootFileNameIs("c");
  time.settle();
  EXPECT_EQ(vlan->mtu(), 1400);
  EXPECT_EQ(applied(), "mtu=1500");
  EXPECT_EQ(takeEvents(),
            Strings{"ZTP_STATELESS_DHCPv6_SUCCESS: DHCPv6 response with stateless configuration "
                    "parameters received on Ethernet1  [ Mtu: 1400; Boot File: c ]"});
  platform.config->enabledIs(false);
  EXPECT_EQ(vlan->mtu(), 1500);
  EXPECT_TRUE(platform.ip6Config->intf().empty() && platform.ipConfig->ipIntfConfig().empty());
}
