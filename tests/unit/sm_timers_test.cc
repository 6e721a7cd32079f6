// The ten timers: their times and overrides, their ticks and stops.
#include "platform/kel/Trace.h"
#include "tests/unit/support/AgentTest.h"

class Timers : public AgentTest {
 protected:
  // A resting machine put into `state`, as if a run had come that far.
  Sm& inState(State state) {
    Sm& result = atRest();
    result.currentStateIs(state);
    result.ZeroTouchSmModel::nextStateIs(state);
    return result;
  }
  // Makes readyToFetchConfig() depend on the flag and the address alone.
  void chooseInterface() {
    Wire::IntfId const port("Ethernet1");
    auto const chosen = Kel::makePtr<ZeroTouch::IntfStatus>(port, nullptr);
    chosen->kernelIntfNameIs("et1");
    platform.dhcpStatus->intfDhcpStatusIs("et1")->bootFileNameIs("http://h/c");
    sm().choosenIntfIs(chosen);
  }
  void addressIs(char const* address) {
    platform.ipStatus->ipIntfStatusIs(Wire::IntfId("Ethernet1"))
        ->activeAddrWithMaskIs(*Wire::IpAddrWithMask::fromString(address));
  }
  Kel::Ptr<Kel::ChildSiginfo> child() {
    char const* argv[] = {"client", nullptr};
    return Kel::run(argv, -1, -1, -1, -1);
  }
  // Lets time pass until `state` is requested, and returns how long that took.
  Kel::Seconds untilRequested(State state) {
    Kel::Seconds const start = Kel::now();
    bool const seen = time.advanceUntil([&] { return sm().transitionState() == state; }, 10'000);
    return seen ? Kel::now() - start : -1;
  }
};

TEST_F(Timers, built_in_times_and_their_overrides) {
  struct Case {
    char const* name;
    std::function<void(Sm&)> start;
    Kel::Seconds interval, timeout;
    char const* variables;  // without _INTERVAL and _TIMEOUT
  };
  platform.config->scriptExecTimeoutIs(77);
  Sm& sm = atRest();
  for (Case const& c : {
           Case{"InterfacesSetupTimer", &Sm::doStartInterfacesSetupTimer, 30, 30,
                "ZEROTOUCH_INETRFACESSETUP_TIMER"},
           Case{"DhclientQueryTimer", &Sm::doStartDhclientQueryTimer, 15, 15,
                "ZEROTOUCH_DHCLIENTQUERY_TIMER"},
           Case{"StatelessDhclientQueryTimer", &Sm::doStartStatelessDhclientQueryTimer, 5, 500,
                "ZEROTOUCH_STATELESSDHCLIENTQUERY_TIMER"},
           Case{"SystemIdentitySetupTimer", &Sm::doStartSystemIdentitySetupTimer, 5, 60,
                "ZEROTOUCH_SYSIDENTITYSETUP_TIMER"},
           Case{"ConfigFetchTimer", &Sm::doStartConfigFetchTimer, 1, 90, "ZEROTOUCH_CONFIGFETCH_TIMER"},
           Case{"ConfigFetchRetryTimer", [](Sm& s) { s.doStartConfigFetchRetryTimer(2); }, 30, 30,
                "ZEROTOUCH_CONFIGFETCHRETRY_TIMER"},
           Case{"ScriptExecTimer", &Sm::doStartScriptExecTimer, 77, 77, "ZEROTOUCH_SCRIPTEXEC_TIMER"},
           Case{"RetryWaitTimer", &Sm::doStartRetryWaitTimer, 15, 15, "ZEROTOUCH_RETRY_TIMER"},
           Case{"LeaseReleaseTimer", &Sm::doStartLeaseReleaseTimer, 30, 30, "ZEROTOUCH_LEASERELEASE_TIMER"},
           Case{"StartupFileSyncWaitTimer", &Sm::doStartStartupFileSyncWaitTimer, 5, 5,
                "ZEROTOUCH_STARTUPFILESYNC_WAIT_TIMER"},
       }) {
    auto const expectTimer = [&](Kel::Seconds interval, Kel::Seconds timeout) {
      c.start(sm);
      EXPECT_EQ(runningTimer(), c.name);
      EXPECT_EQ(sm.timer()->interval(), interval) << c.name;
      EXPECT_EQ(sm.timer()->timeout(), timeout) << c.name;
      EXPECT_EQ(sm.timer()->initTime(), Kel::now());
      EXPECT_EQ(sm.timer()->defaultInterval(), c.interval);
      EXPECT_EQ(sm.timer()->defaultTimeout(), c.timeout);
    };
    expectTimer(c.interval, c.timeout);
    environment.set(c.variables + std::string("_INTERVAL"), "0.25");
    expectTimer(0.25, c.timeout);
    environment.set(c.variables + std::string("_TIMEOUT"), "2.5 seconds");
    expectTimer(0.25, 2.5);
    for (char const* const noNumber : {"soon", "", "inf", "nan"}) {
      environment.set(c.variables + std::string("_TIMEOUT"), noNumber);
      expectTimer(0.25, 0);
    }
  }
}

TEST_F(Timers, a_fractional_one_shot_timer_stops_at_its_first_firing) {
  // Times like these do not add up exactly in binary; missing the timeout would double the wait.
  for (char const* const seconds : {"0.1", "0.3", "0.7", "1.1", "2.3"}) {
    environment.set("ZEROTOUCH_RETRY_TIMER_INTERVAL", seconds);
    environment.set("ZEROTOUCH_RETRY_TIMER_TIMEOUT", seconds);
    time.advance(0.123456789);
    inState(State::stateRetry).doStartRetryWaitTimer();
    EXPECT_NEAR(untilRequested(State::stateDhcpQuery), std::stod(seconds), 1e-6);
    agent = nullptr;
  }
}

TEST_F(Timers, a_timeout_of_zero_stops_at_the_first_firing_after_the_interval) {
  environment.set("ZEROTOUCH_RETRY_TIMER_TIMEOUT", "0");
  inState(State::stateRetry).doStartRetryWaitTimer();
  EXPECT_EQ(untilRequested(State::stateDhcpQuery), 15);
}

TEST_F(Timers, the_query_timer_reports_and_stops_the_clients_that_still_run) {
  Sm& sm = inState(State::stateDhcpQuery);
  sm.dhclientChildProcessIs(child());
  sm.dhclient6ChildProcessIs(child());
  sm.doStartDhclientQueryTimer();
  EXPECT_EQ(untilRequested(State::stateStatelessDhcpQuery), 15);
  EXPECT_EQ(takeEvents(), (Strings{"ZTP_DHCPv4_QUERY_FAIL: Failed to get a valid DHCPv4 response",
                                   "ZTP_DHCPv6_QUERY_FAIL: Failed to get a valid DHCPv6 response"}));
  EXPECT_FALSE(sm.dhclientChildProcess() || sm.dhclient6ChildProcess());
  for (auto const& started : children.started) EXPECT_EQ(started.signals, std::vector<int>{SIGTERM});
}

TEST_F(Timers, the_stateless_query_ends_when_its_time_is_over_also_between_interfaces) {
  environment.set("ZEROTOUCH_STATELESSDHCLIENTQUERY_TIMER_TIMEOUT", "5");
  Sm& sm = inState(State::stateStatelessDhcpQuery);
  sm.dhclient6StatelessChildProcessIs(child());
  sm.doStartStatelessDhclientQueryTimer();
  EXPECT_EQ(untilRequested(State::stateRetry), 5);
  EXPECT_EQ(
      takeEvents(),
      Strings{
          "ZTP_STATELESS_DHCPv6_QUERY_FAIL: Failed to get a valid stateless configuration parameters over "
          "DHCPv6 response"});
  EXPECT_EQ(children.last().signals, std::vector<int>{SIGTERM});
}

TEST_F(Timers, readiness_follows_the_family_that_brought_the_boot_file) {
  inState(State::stateSetupSystemIdentity);
  chooseInterface();
  addressIs("10.0.0.5/24");
  EXPECT_FALSE(sm().readyToFetchConfig());
  sm().systemIdentitySetupTimerExpiredIs(true);
  EXPECT_TRUE(sm().readyToFetchConfig());

  platform.dhcpStatus->intfDhcpStatus("et1")->bootFileNameIs(
      "");  // the DHCPv4 record now says nothing but FAIL
  EXPECT_FALSE(sm().readyToFetchConfig());
  platform.dhcpStatus->intfDhcp6StatusIs("et1")->bootFileNameIs("http://h/c");
  EXPECT_FALSE(sm().readyToFetchConfig());
  platform.ip6Status->intfIs(Wire::IntfId("Ethernet1"))
      ->addrIs(*Wire::Ip6AddrWithMask::fromString("2001:db8::5/64"));
  EXPECT_TRUE(sm().readyToFetchConfig());
  sm().choosenIntfIs(nullptr);
  EXPECT_FALSE(sm().readyToFetchConfig());
}
