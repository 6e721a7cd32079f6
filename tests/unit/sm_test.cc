// What the simulated runs do not show of the state machine: how a run starts and ends, its times and its
// events.
#include "platform/kel/Random.h"
#include "tests/unit/support/AgentTest.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/sm/Pacing.h"

namespace {

std::string const started = "ZTP_INIT: No startup-config found, starting Zero Touch Provisioning";
std::string const nobodyAsked = "DHCP_NOT_ASKED: No DHCP server could be asked: there are no ports";
std::string const reloading = "ZTP_RELOAD: Rebooting the system";
std::string const waiting =
    "ZTP_STARTUP_FILE_SYNC_TIMEOUT: Waiting on File Replicator to synchronize the startup-config ";
std::string const unsynchronised =
    "ZTP_STARTUP_FILE_SYNC_FAIL: Failed to Synchronize the startup-config file with the standby ";

}  // namespace

class StateMachine : public AgentTest {
 protected:
  // A resting machine put into `state`, as if a run had come that far.
  Sm& inState(State state) {
    atRest().currentStateIs(state);
    sm().ZeroTouchSmModel::nextStateIs(state);
    return sm();
  }
  // Lets time pass until `done`, and returns how long that took.
  Kel::Seconds secondsUntil(std::function<bool()> const& done) {
    Kel::Seconds const start = Kel::now();
    return time.advanceUntil(done, 10'000) ? Kel::now() - start : -1;
  }
  Kel::Seconds untilRequested(State state) {
    return secondsUntil([this, state] { return sm().transitionState() == state; });
  }
  Kel::Seconds untilReload() {
    return secondsUntil([this] { return platform.reloadConfig->reloadTime() > 0; });
  }
};

// The whole of a run as far as it goes without interfaces: two attempts, then the time limit, without the
// guard entry, so that provisioning starts again after the reload.
TEST_F(StateMachine, a_run_without_interfaces_retries_until_the_time_limit) {
  environment.unset("SYSNAME");
  Kel::activityManager()->config()->systemNameIs("sw1");
  platform.config->maxRunTimeIs(100);
  platform.config->enabledIs(true);
  inventoryIs(EntityMib::InitStatus::initialized);
  agent = createAgent();
  time.advance(45);
  EXPECT_EQ(takeEvents(),
            (Strings{started, nobodyAsked,
                     "ZTP_RETRY: Retrying Zero Touch Provisioning from the beginning (attempt 1)"}));
  EXPECT_EQ(sm().lastFailureCause(), "no port could be asked for a boot file: there are no ports");
  EXPECT_EQ(sm().lastFailureAttempt(), 1);
  EXPECT_STREQ(std::getenv("SYSNAME"), "sw1");
  time.advance(59.9);
  EXPECT_EQ(sm().retryCount(), 2);
  EXPECT_EQ(platform.reloadConfig->reloadTime(), 0);
  time.advance(0.2);
  EXPECT_EQ(
      takeEvents(),
      (Strings{nobodyAsked, "ZTP_RETRY: Retrying Zero Touch Provisioning from the beginning (attempt 2)",
               nobodyAsked, reloading}));
  EXPECT_EQ(platform.status->runTime(), 105);
  EXPECT_EQ(platform.reloadConfig->reason(), "ZTP RELOAD");
  EXPECT_EQ(platform.reloadConfig->reloadTime(), sm().startTime() + 105);
  EXPECT_EQ(settingsFile(), "(absent)");
}

TEST_F(StateMachine, a_forced_shutdown_ends_the_first_retry) {
  environment.set("ZEROTOUCH_FORCE_SHUTDOWN", "1");
  inventoryIs(EntityMib::InitStatus::initialized);
  platform.config->enabledIs(true);
  agent = createAgent();
  time.advance(45);
  EXPECT_EQ(takeEvents(), (Strings{started, nobodyAsked, reloading}));
}

TEST_F(StateMachine, a_refused_request_changes_nothing_but_cancels_the_timer) {
  Sm& sm = inRetry();
  sm.nextStateIs(State::stateRetry);  // held already: its entry action does not run again
  EXPECT_EQ(sm.retryCount(), 1);
  ASSERT_EQ(runningTimer(), "RetryWaitTimer");
  sm.doStateTransition(State::stateDhcpQuery, State::stateStatelessDhcpQuery,
                       ZeroTouch::TransitionCause::dhcpQueryOver);
  time.settle();
  EXPECT_EQ(sm.currentState(), State::stateRetry);
  EXPECT_EQ(runningTimer(), "");
  EXPECT_EQ(takeEvents(), Strings{});
}

TEST_F(StateMachine, nothing_overtakes_a_stop_that_is_pending) {
  for (State const stop : {State::stateInit, State::stateShutdown}) {
    Sm& sm = inRetry();
    stop == State::stateInit ? platform.config->enabledIs(false) : platform.config->cancelledIs(true);
    sm.doStateTransition(State::stateInvalid, State::stateDhcpQuery,
                         ZeroTouch::TransitionCause::dhcpQueryOver);
    time.settle();
    EXPECT_EQ(sm.currentState(), stop);
    std::filesystem::remove(flash.path("/flash/zerotouch-config"));
    startOver();
  }
}

TEST_F(StateMachine, fetch_retries_back_off_three_times_then_the_run_retries) {
  atRest();
  for (int attempt = 1; attempt <= 4; ++attempt) {
    sm().currentStateIs(State::stateFetchConfig);
    sm().ZeroTouchSmModel::nextStateIs(State::stateFetchConfig);
    sm().nextStateIs(State::stateRetryFetchConfig);
    if (attempt <= 3) {
      EXPECT_EQ(sm().timer()->timeout(), 15 * attempt);
    }
  }
  EXPECT_EQ(sm().configFetchTryCounter(), 0);
  time.settle();
  EXPECT_EQ(sm().currentState(), State::stateRetry);
}

// The script that removes DHCP results finds its reason in the environment. The simulated runs show that the
// wait for it has an end, and what follows.
TEST_F(StateMachine, the_clean_up_is_told_its_reason_and_can_be_left_out) {
  environment.set("reason", "something else");
  for (char const* const variable : {"UNRELATED", "ZEROTOUCH_IGNORE_DHCLIENTCLEANUP"}) {
    Strings reasons;
    children.onRunAndWait = [&](char const* path) {
      reasons.push_back(std::string(path) + " " + std::getenv("reason"));
      return 1;
    };
    environment.set(variable, "1");
    Sm& sm = inRetry();
    platform.dhcpStatus->intfDhcpStatusIs("et1");
    time.advance(15);
    bool const left = sm.awaitsDhcpCleanup();
    EXPECT_EQ(left, variable == std::string("UNRELATED"));
    std::string const script = "/usr/bin/zerotouch-dhclient-script CLEANUP";
    EXPECT_EQ(reasons, left ? (Strings{script, script + "6", script, script + "6"}) : Strings{});
    EXPECT_TRUE(!left || std::getenv("reason") == nullptr);
    startOver();
  }
}

TEST_F(StateMachine, a_standby_is_waited_for_six_times_at_the_most) {
  enum class Standby { none, synchronized, afterTwo, never };
  struct Case {
    char const* cellType;
    Standby standby;
    Strings events;
    Kel::Seconds expected;
  };
  Strings sixWaits(6, waiting);
  sixWaits.insert(sixWaits.end(), {reloading, unsynchronised});
  for (Case const& c :
       {Case{"fixed", Standby::never, {reloading}, 0}, Case{"supervisor", Standby::none, {reloading}, 0},
        Case{"supervisor", Standby::synchronized, {reloading}, 0},
        Case{"supervisor", Standby::afterTwo, {waiting, waiting, reloading}, 10},
        Case{"supervisor", Standby::never, sixWaits, 30}}) {
    Kel::activityManager()->config()->cellTypeIs(c.cellType);
    inRetry();
    auto const& replication = platform.fileReplicationStatus;
    if (c.standby != Standby::none)
      replication->entryIs("RedSup")->synchronizedIs(c.standby == Standby::synchronized);
    Kel::Seconds const start = Kel::now();
    sm().doStateTransition(State::stateRetry, State::stateShutdown, ZeroTouch::TransitionCause::runTimeOver);
    if (c.standby == Standby::afterTwo) {
      time.advance(7);
      replication->entry("RedSup")->synchronizedIs(true);
    }
    untilReload();
    EXPECT_EQ(Kel::now() - start, c.expected);
    EXPECT_EQ(takeEvents(), c.events);
    EXPECT_EQ(platform.reloadConfig->all(), std::string(c.cellType) != "fixed");
    sm().doShutdown();  // a child that ends late calls it once more
    EXPECT_EQ(takeEvents(), Strings{});
    startOver();
  }
}

TEST_F(StateMachine, readiness_follows_the_family_that_brought_the_boot_file) {
  Wire::IntfId const port("Ethernet1");
  inState(State::stateSetupSystemIdentity);
  auto const chosen = Kel::makePtr<ZeroTouch::IntfStatus>(port, nullptr);
  chosen->kernelIntfNameIs("et1");
  platform.dhcpStatus->intfDhcpStatusIs("et1")->bootFileNameIs("http://h/c");
  sm().choosenIntfIs(chosen);
  platform.ipStatus->ipIntfStatusIs(port)->activeAddrWithMaskIs(
      *Wire::IpAddrWithMask::fromString("10.0.0.5/24"));
  EXPECT_FALSE(sm().readyToFetchConfig());
  sm().systemIdentitySetupTimerExpiredIs(true);
  EXPECT_TRUE(sm().readyToFetchConfig());
  sm().choosenIntfIs(nullptr);
  EXPECT_FALSE(sm().readyToFetchConfig());

  // A DHCPv4 report that comes after the DHCPv6 answer was chosen does not change for what is waited.
  platform.dhcpStatus->intfDhcpStatusDelAll();
  platform.dhcpStatus->intfDhcp6StatusIs("et1")->bootFileNameIs("http://h/c");
  sm().choosenIntfIs(chosen);
  platform.dhcpStatus->intfDhcpStatusIs("et1")->bootFileNameIs("http://h/c");
  EXPECT_FALSE(sm().readyToFetchConfig());
  platform.ip6Status->intfIs(port)->addrIs(*Wire::Ip6AddrWithMask::fromString("2001:db8::5/64"));
  EXPECT_TRUE(sm().readyToFetchConfig());
  sm().choosenIntfIs(nullptr);
  EXPECT_FALSE(sm().readyToFetchConfig());
}

TEST_F(StateMachine, its_timers_have_built_in_times_that_the_environment_overrides) {
  struct Case {
    char const* variables;  // without _INTERVAL and _TIMEOUT
    std::function<void(Sm&)> start;
    Kel::Seconds interval, timeout;
  };
  platform.config->scriptExecTimeoutIs(77);
  atRest();
  for (Case const& c :
       {Case{"INETRFACESSETUP_TIMER", &Sm::doStartInterfacesSetupTimer, 30, 30},
        Case{"DHCLIENTQUERY_TIMER", &Sm::doStartDhclientQueryTimer, 15, 15},
        Case{"STATELESSDHCLIENTQUERY_TIMER", &Sm::doStartStatelessDhclientQueryTimer, 5, 500},
        Case{"SYSIDENTITYSETUP_TIMER", &Sm::doStartSystemIdentitySetupTimer, 5, 60},
        Case{"CONFIGFETCH_TIMER", &Sm::doStartConfigFetchTimer, 1, 90},
        Case{"CONFIGFETCHRETRY_TIMER", [](Sm& s) { s.doStartConfigFetchRetryTimer(2); }, 30, 30},
        Case{"SCRIPTEXEC_TIMER", &Sm::doStartScriptExecTimer, 77, 77},
        Case{"RETRY_TIMER", &Sm::doStartRetryWaitTimer, 15, 15},
        Case{"LEASERELEASE_TIMER", &Sm::doStartLeaseReleaseTimer, 30, 30},
        Case{"STARTUPFILESYNC_WAIT_TIMER", &Sm::doStartStartupFileSyncWaitTimer, 5, 5}}) {
    std::string const variables = std::string("ZEROTOUCH_") + c.variables;
    auto const expectTimes = [&](Kel::Seconds interval, Kel::Seconds timeout) {
      c.start(sm());
      auto const& timer = *sm().timer();
      EXPECT_EQ((std::vector{timer.interval(), timer.timeout()}), (std::vector{interval, timeout}))
          << variables;
      EXPECT_EQ((std::vector{timer.defaultInterval(), timer.defaultTimeout()}),
                (std::vector{c.interval, c.timeout}));
    };
    expectTimes(c.interval, c.timeout);
    environment.set(variables + "_INTERVAL", "0.25");
    environment.set(variables + "_TIMEOUT", "2.5 seconds");
    expectTimes(0.25, 2.5);
    for (char const* const noNumber : {"soon", "", "nan"}) {
      environment.set(variables + "_TIMEOUT", noNumber);
      expectTimes(0.25, 0);
    }
    environment.set(variables + "_TIMEOUT", "inf");
    expectTimes(0.25, Kel::never);
  }
}

TEST_F(StateMachine, platform_toml_stretches_its_waits_and_says_why) {
  auto const policy = Kel::makePtr<ZeroTouch::Policy>();
  Kel::activityManager()->localEntityIs(ZeroTouch::policyName, policy);
  Kel::randomSourceIs([] { return 0.5; });
  ZeroTouch::Pacing pacing;
  auto const expect = [](ZeroTouch::Wait const& wait, Kel::Seconds seconds, std::string const& purpose) {
    EXPECT_EQ(wait.time, seconds);
    EXPECT_EQ(wait.purpose, purpose);
  };
  pacing.serverAsksFor(100);
  expect(pacing.beforeFirstQuery(30), 30, "");
  expect(pacing.forAnswers(15, 5), 15, "");
  expect(pacing.beforeAttempt(15, 5), 15, "");
  expect(pacing.beforeDownload(45, 5), 45, "");
  expect(pacing.forDownload(90), 90, "");

  policy->pacing()->startJitterIs(10);
  policy->pacing()->retryBackoffMaxIs(100);
  expect(pacing.beforeFirstQuery(30), 35, "the ports, and 5 s at random before the first query");
  expect(pacing.forAnswers(15, 0), 15, "");
  expect(pacing.forAnswers(15, 1), 30, "30 s for answers");
  expect(pacing.forAnswers(15, 4'000'000'000), 60, "60 s for answers");
  expect(pacing.beforeAttempt(15, 1), 15, "");
  expect(pacing.beforeAttempt(15, 2), 30, "30 s before the next attempt: 30 s after 2 failed attempts");
  expect(pacing.beforeAttempt(15, 90), 100, "100 s before the next attempt: 100 s after 90 failed attempts");
  expect(pacing.beforeDownload(15, 1), 30, "30 s before the next download: 30 s after 1 failed attempt");
  expect(pacing.beforeAttempt(150, 9), 150, "");
  expect(pacing.beforeAttempt(Kel::never, 9), Kel::never, "");

  policy->pacing()->retryJitterIs(0.5);
  policy->pacing()->retryAfterIs(true);
  expect(pacing.beforeAttempt(16, 1), 20, "20 s before the next attempt, 4 s of it at random");
  for (auto const& [asked, pause] :
       std::initializer_list<std::pair<Kel::Seconds, Kel::Seconds>>{{20, 25}, {9'999, 750}, {-5, 20}}) {
    pacing.serverAsksFor(asked);
    EXPECT_EQ(pacing.beforeDownload(16, 0).time, pause);
  }
  pacing.serverAsksFor(20);
  expect(pacing.beforeDownload(16, 0), 25,
         "25 s before the next download: the server has asked for a pause of 20 s, 5 s of it at random");
  time.advance(20);
  EXPECT_EQ(pacing.beforeDownload(16, 0).time, 20);
  policy->dhcp()->clientTimingIs(ZeroTouch::ClientTiming::rfc);
  expect(pacing.forAnswers(15, 0), 60, "60 s for answers");
  policy->download()->stallLimitIs(30);
  expect(pacing.forDownload(90), 86'400, "the download, unless nothing moves for 30 s");

  // The clean-up is no pause, and what the environment says is the beginning.
  environment.set("ZEROTOUCH_RETRY_TIMER_TIMEOUT", "8");
  environment.set("ZEROTOUCH_RETRY_TIMER_INTERVAL", "8");
  atRest();
  sm().doStartRetryWaitTimer();
  EXPECT_EQ(sm().timer()->timeout(), 10);
  EXPECT_EQ(sm().timer()->purpose(), "10 s before the next attempt, 2 s of it at random");
  sm().awaitsDhcpCleanupIs(true);
  sm().doStartRetryWaitTimer();
  EXPECT_EQ(sm().timer()->timeout(), 8);
  Kel::randomSourceIs({});
  Kel::activityManager()->localEntityDel(ZeroTouch::policyName);
}

TEST_F(StateMachine, a_timer_stops_at_the_first_firing_at_which_its_time_is_over) {
  // Some times do not add up exactly in binary; missing the timeout would double the wait.
  for (auto const& [interval, timeout] : std::initializer_list<std::pair<char const*, char const*>>{
           {"15", "0"}, {"0.1", "0.1"}, {"0.3", "0.3"}, {"0.7", "0.7"}, {"1.1", "1.1"}, {"2.3", "2.3"}}) {
    environment.set("ZEROTOUCH_RETRY_TIMER_INTERVAL", interval);
    environment.set("ZEROTOUCH_RETRY_TIMER_TIMEOUT", timeout);
    time.advance(0.123456789);
    inState(State::stateRetry).doStartRetryWaitTimer();
    EXPECT_NEAR(untilRequested(State::stateDhcpQuery), std::stod(interval), 1e-6);
    agent = nullptr;
  }
}
