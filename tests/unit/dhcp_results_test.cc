// DHCP results and addresses, as far as they move the run on.
#include "tests/unit/support/Ports.h"

class DhcpResults : public PortTest {
 protected:
  // Two registered ports, the run in `state`, and a client of each kind.
  Sm& inState(State state) {
    addPort("Ethernet1", routed);
    addPort("Ethernet2", routed);
    inSetup();
    sm().currentStateIs(state);
    sm().ZeroTouchSmModel::nextStateIs(state);
    char const* argv[] = {"client", nullptr};
    sm().dhclientChildProcessIs(Kel::run(argv, -1, -1, -1, -1));
    sm().dhclient6ChildProcessIs(Kel::run(argv, -1, -1, -1, -1));
    sm().dhclient6StatelessChildProcessIs(Kel::run(argv, -1, -1, -1, -1));
    sm().doStartDhclientQueryTimer();
    events.clear();
    return sm();
  }
  Kel::Ptr<ZeroTouch::IntfDhcpStatus> v4(std::string const& port) {
    return platform.dhcpStatus->intfDhcpStatusIs("dev-" + port);
  }
  Kel::Ptr<ZeroTouch::IntfDhcpStatus> v6(std::string const& port) {
    return platform.dhcpStatus->intfDhcp6StatusIs("dev-" + port);
  }
  std::string chosen() { return sm().choosenIntf() ? sm().choosenIntf()->intfName() : ""; }
  std::size_t stopped() {
    return std::count_if(children.started.begin(), children.started.end(),
                         [](auto const& child) { return child.signals == std::vector<int>{SIGTERM}; });
  }
};

TEST_F(DhcpResults, the_first_boot_file_name_in_a_query_state_chooses_its_interface) {
  struct Case {
    State state;
    bool six;
    std::string port, bootFile;
    bool chooses;
  };
  for (Case const& c : {Case{State::stateDhcpQuery, false, "Ethernet2", "http://h/c", true},
                        Case{State::stateDhcpQuery, true, "Ethernet1", "http://h/c", true},
                        Case{State::stateStatelessDhcpQuery, true, "Ethernet1", "c", true},
                        Case{State::stateDhcpQuery, false, "Ethernet1", "", false},
                        Case{State::stateDhcpQuery, false, "nowhere", "c", false},
                        Case{State::stateRetry, false, "Ethernet1", "c", false},
                        Case{State::stateSetupSystemIdentity, true, "Ethernet1", "c", false}}) {
    inState(c.state);
    (c.six ? v6(c.port) : v4(c.port))->bootFileNameIs(c.bootFile);
    EXPECT_EQ(chosen(), c.chooses ? c.port : "");
    EXPECT_EQ(sm().transitionState(), c.chooses ? State::stateSetupSystemIdentity : State::stateInvalid);
    EXPECT_EQ(stopped(), c.chooses ? 3 : 0);
    EXPECT_EQ(runningTimer(), c.chooses ? "" : "DhclientQueryTimer");
    if (c.chooses) v4("Ethernet1")->bootFileNameIs("a later one");
    EXPECT_EQ(chosen(), c.chooses ? c.port : "");
    startOver();
  }
}

TEST_F(DhcpResults, a_query_that_failed_on_every_interface_is_reported_and_its_client_stopped) {
  inState(State::stateDhcpQuery);
  v4("Ethernet1")->reasonIs("FAIL");
  EXPECT_EQ(takeEvents(), Strings{});
  v4("Ethernet2")->reasonIs("BOUND");
  EXPECT_EQ(takeEvents(), Strings{});
  v4("Ethernet2")->reasonIs("TIMEOUT");
  EXPECT_EQ(takeEvents(), Strings{"ZTP_DHCPv4_QUERY_FAIL: Failed to get a valid DHCPv4 response"});
  EXPECT_EQ(stopped(), 1);
  EXPECT_EQ(runningTimer(), "DhclientQueryTimer");

  sm().currentStateIs(State::stateRetry);  // where a client that releases its lease shares the record
  v4("Ethernet2")->reasonIs("FAIL");
  EXPECT_EQ(takeEvents(), Strings{});
}

TEST_F(DhcpResults, a_result_from_before_the_start_or_made_anew_is_watched) {
  auto const before = v4("Ethernet1");
  inState(State::stateDhcpQuery);
  platform.dhcpStatus->intfDhcp6StatusIs("dev-Ethernet2");
  platform.dhcpStatus->intfDhcp6StatusDelAll();
  v6("Ethernet2")->bootFileNameIs("c");
  EXPECT_EQ(chosen(), "Ethernet2");
  sm().choosenIntfIs(nullptr);
  before->bootFileNameIs("c");
  EXPECT_EQ(chosen(), "Ethernet1");
}

TEST_F(DhcpResults, an_address_that_becomes_active_starts_the_download) {
  struct Case {
    State state;
    bool six;
    char const* address;
    bool starts;
  };
  for (Case const& c : {Case{State::stateSetupSystemIdentity, false, "10.0.0.5/24", true},
                        Case{State::stateSetupSystemIdentity, true, "2001:db8::5/64", true},
                        Case{State::stateSetupSystemIdentity, false, "0.0.0.0/0", false},
                        Case{State::stateRetry, false, "10.0.0.5/24", false}}) {
    inState(c.state);
    platform.ipStatus->ipIntfStatusIs(id("Ethernet1"))
        ->activeAddrWithMaskIs(*Wire::IpAddrWithMask::fromString("1.1.1.1/8"));
    (c.six ? v6("Ethernet1") : v4("Ethernet1"))->bootFileNameIs("c");
    sm().choosenIntfIs(sm().phyIntfStatus(id("Ethernet1")));
    sm().systemIdentitySetupTimerExpiredIs(true);
    if (c.six) {
      platform.ip6Status->intfIs(id("Ethernet1"))->addrIs(*Wire::Ip6AddrWithMask::fromString(c.address));
    } else {
      platform.ipStatus->ipIntfStatus(id("Ethernet1"))
          ->activeAddrWithMaskIs(*Wire::IpAddrWithMask::fromString(c.address));
    }
    EXPECT_EQ(sm().transitionState(), c.starts ? State::stateFetchConfig : State::stateInvalid) << c.address;
    startOver();
  }
}
