// The clean-up before a retry, the release of leases, the standby and the reload request.
#include "tests/unit/support/AgentTest.h"

namespace {

std::string const reloading = "ZTP_RELOAD: Rebooting the system";
std::string const waiting =
    "ZTP_STARTUP_FILE_SYNC_TIMEOUT: Waiting on File Replicator to synchronize the startup-config ";
std::string const unsynchronised =
    "ZTP_STARTUP_FILE_SYNC_FAIL: Failed to Synchronize the startup-config file with the standby ";

}  // namespace

class Shutdown : public AgentTest {
 protected:
  Kel::Ptr<Kel::ChildSiginfo> child() {
    char const* argv[] = {"client", nullptr};
    return Kel::run(argv, -1, -1, -1, -1);
  }
};

TEST_F(Shutdown, a_retry_waits_until_both_families_of_results_are_gone) {
  Sm& sm = inRetry();
  platform.dhcpStatus->intfDhcpStatusIs("et1");
  platform.dhcpStatus->intfDhcp6StatusIs("et1");
  children.ranAndWaited.clear();
  time.advance(15);
  EXPECT_EQ(children.ranAndWaited.size(), 2);
  EXPECT_EQ(sm.currentState(), State::stateRetry);
  EXPECT_EQ(sm.retryCount(), 1);

  platform.dhcpStatus->intfDhcpStatusDel("et1");
  EXPECT_EQ(sm.transitionState(), State::stateInvalid);
  platform.dhcpStatus->intfDhcp6StatusDel("et1");
  EXPECT_EQ(sm.transitionState(), State::stateDhcpQuery);
}

TEST_F(Shutdown, the_wait_for_the_results_is_bounded_or_left_out) {
  struct Case {
    char const* variable;  // set in the environment
    bool scriptRemoves;    // the clean-up script does its work
    Kel::Seconds expected;
  };
  for (Case const& c : {Case{"UNRELATED", false, 30}, Case{"UNRELATED", true, 15},
                        Case{"ZEROTOUCH_IGNORE_DHCLIENTCLEANUP", false, 15}}) {
    Environment scoped;
    scoped.set(c.variable, "1");
    Sm& sm = inRetry();
    platform.dhcpStatus->intfDhcpStatusIs("et1");
    children.onRunAndWait = [&](char const*) {
      if (c.scriptRemoves) platform.dhcpStatus->intfDhcpStatusDelAll();
      return 0;
    };
    Kel::Seconds const start = Kel::now();
    EXPECT_TRUE(time.advanceUntil([&] { return sm.transitionState() == State::stateDhcpQuery; }, 1000));
    EXPECT_EQ(Kel::now() - start, c.expected);
    startOver();
    children.onRunAndWait = [](char const*) { return 0; };
  }
}

TEST_F(Shutdown, stopping_a_client_that_has_ended_keeps_its_record) {
  Sm& sm = inRetry();
  auto const ended = child();
  ended->killedIs(9);
  sm.dhclientChildProcessIs(ended);
  sm.doStopDhclient();
  EXPECT_EQ(sm.dhclientChildProcess(), ended);
  EXPECT_TRUE(children.last().signals.empty());
}

TEST_F(Shutdown, leases_are_released_before_the_reload) {
  enum class Ends { v4, v6, neither };
  for (Ends const ends : {Ends::v4, Ends::v6, Ends::neither}) {
    Sm& sm = inRetry();
    auto const v4 = child();
    auto const v6 = child();
    sm.dhclientChildProcessIs(v4);
    sm.dhclient6ChildProcessIs(v6);
    platform.config->cancelledIs(true);
    time.settle();
    EXPECT_EQ(runningTimer(), "LeaseReleaseTimer");
    EXPECT_EQ(platform.reloadConfig->reloadTime(), 0);
    Kel::Seconds const start = Kel::now();
    if (ends == Ends::v4) v4->exitedIs(0);
    if (ends == Ends::v6) v6->exitedIs(0);
    time.advanceUntil([this] { return platform.reloadConfig->reloadTime() > 0; }, 1000);
    EXPECT_EQ(Kel::now() - start, ends == Ends::neither ? 30 : 0);
    EXPECT_FALSE(sm.dhclientChildProcess() || sm.dhclient6ChildProcess());
    EXPECT_EQ(events.back(), reloading);
    EXPECT_EQ(runningTimer(), "");
    startOver();
  }
}

TEST_F(Shutdown, a_standby_is_waited_for_six_times_at_the_most) {
  enum class Standby { none, synchronized, afterTwo, never };
  struct Case {
    char const* cellType;
    Standby standby;
    Strings events;
    Kel::Seconds expected;
    bool all;
  };
  Strings const sixWaits(6, waiting);
  auto const plus = [](Strings list, Strings const& more) {
    list.insert(list.end(), more.begin(), more.end());
    return list;
  };
  for (Case const& c :
       {Case{"fixed", Standby::never, {reloading}, 0, false},
        Case{"supervisor", Standby::none, {reloading}, 0, true},
        Case{"supervisor", Standby::synchronized, {reloading}, 0, true},
        Case{"supervisor", Standby::afterTwo, {waiting, waiting, reloading}, 10, true},
        Case{"supervisor", Standby::never, plus(sixWaits, {reloading, unsynchronised}), 30, true}}) {
    Kel::activityManager()->config()->cellTypeIs(c.cellType);
    Sm& sm = inRetry();
    if (c.standby != Standby::none) {
      platform.fileReplication->entryIs("RedSup")->synchronizedIs(c.standby == Standby::synchronized);
    }
    Kel::Seconds const start = Kel::now();
    sm.doStateTransition(State::stateRetry, State::stateShutdown);
    if (c.standby == Standby::afterTwo) {
      time.advance(7);
      platform.fileReplication->entry("RedSup")->synchronizedIs(true);
    }
    time.advanceUntil([this] { return platform.reloadConfig->reloadTime() > 0; }, 1000);
    EXPECT_EQ(Kel::now() - start, c.expected);
    EXPECT_EQ(takeEvents(), c.events);
    EXPECT_EQ(platform.reloadConfig->all(), c.all);
    EXPECT_EQ(platform.reloadConfig->reason(), "ZTP RELOAD");

    sm.doShutdown();  // a child that ends late calls it once more
    EXPECT_EQ(takeEvents(), Strings{});
    startOver();
  }
}
