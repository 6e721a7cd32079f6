// How states are requested, deferred, refused and entered.
#include "tests/unit/support/AgentTest.h"

class States : public AgentTest {};

TEST_F(States, a_request_is_carried_out_on_the_next_pass_and_the_last_one_counts) {
  Sm& sm = inRetry();
  sm.doStateTransition(State::stateRetry, State::stateShutdown);
  EXPECT_EQ(sm.currentState(), State::stateRetry);
  EXPECT_EQ(sm.transitionState(), State::stateShutdown);
  time.settle();
  EXPECT_EQ(sm.currentState(), State::stateShutdown);
  EXPECT_EQ(sm.transitionState(), State::stateInvalid);
}

TEST_F(States, a_refused_request_changes_nothing_but_cancels_the_timer) {
  Sm& sm = inRetry();
  ASSERT_EQ(runningTimer(), "RetryWaitTimer");
  sm.doStateTransition(State::stateDhcpQuery, State::stateStatelessDhcpQuery);
  time.settle();
  EXPECT_EQ(sm.currentState(), State::stateRetry);
  EXPECT_EQ(runningTimer(), "");
}

TEST_F(States, only_a_shutdown_overtakes_a_pending_stop_and_nothing_leaves_shutdown) {
  struct Case {
    State first, second, expected;
  };
  for (Case const& c : {Case{State::stateInit, State::stateRetry, State::stateInit},
                        Case{State::stateInit, State::stateShutdown, State::stateShutdown},
                        Case{State::stateShutdown, State::stateInit, State::stateShutdown},
                        Case{State::stateDhcpQuery, State::stateInit, State::stateInit}}) {
    Sm& sm = inRetry();
    platform.config->enabledIs(true);
    sm.doStateTransition(State::stateInvalid, c.first);
    sm.doStateTransition(State::stateInvalid, c.second);
    sm.enabledIs(false);  // so that stateInit does not start over
    time.settle();
    EXPECT_EQ(sm.currentState(), c.expected);
    sm.doStateTransition(State::stateInvalid, State::stateSetupInterfaces);
    time.settle();
    bool const shut = c.expected == State::stateShutdown;
    EXPECT_EQ(sm.currentState() == State::stateShutdown, shut);
    platform.config->enabledIs(false);
    startOver();
  }
}

TEST_F(States, forced_immediate_transitions_happen_inside_the_call) {
  environment.set("ZEROTOUCH_FORCE_IMMEDIATE_STATE_TRANSITIONS", "");
  Sm& sm = atRest();
  inventoryIs(EntityMib::InitStatus::initialized);
  platform.config->enabledIs(true);
  EXPECT_EQ(sm.currentState(), State::stateSetupInterfaces);
  EXPECT_EQ(runningTimer(), "InterfacesSetupTimer");
}

TEST_F(States, handing_over_the_same_state_again_runs_no_entry_action) {
  Sm& sm = inRetry();
  sm.nextStateIs(State::stateRetry);
  EXPECT_EQ(sm.retryCount(), 1);
  EXPECT_EQ(takeEvents(), Strings{});
}

TEST_F(States, entering_from_a_state_that_is_not_allowed_aborts_with_the_condition) {
  struct Case {
    State current, next;
    char const* text;
  };
  Sm& sm = atRest();
  for (Case const& c :
       {Case{State::stateRetry, State::stateSetupInterfaces, "currentState\\(\\) == stateInit\\(\\)"},
        Case{
            State::stateInit, State::stateDhcpQuery,
            "currentState\\(\\) == stateSetupInterfaces\\(\\) \\|\\| currentState\\(\\) == stateRetry\\(\\)"},
        Case{State::stateInit, State::stateStatelessDhcpQuery, "currentState\\(\\) == stateDhcpQuery\\(\\)"},
        Case{State::stateInit, State::stateSetupSystemIdentity,
             "\\( currentState\\(\\) == stateDhcpQuery\\(\\) \\) \\|\\| \\( currentState\\(\\) == "
             "stateStatelessDhcpQuery\\(\\) \\)"},
        Case{State::stateInit, State::stateFetchConfig,
             "currentState\\(\\) == stateSetupSystemIdentity\\(\\) \\|\\| currentState\\(\\) == "
             "stateRetryFetchConfig\\(\\)"},
        Case{State::stateInit, State::stateRetryFetchConfig, "currentState\\(\\) == stateFetchConfig\\(\\)"},
        Case{State::stateInit, State::stateCopyConfigOrExecScript,
             "currentState\\(\\) == stateFetchConfig\\(\\)"},
        Case{State::stateInit, State(3), "!\"Invalid state transition\""}}) {
    sm.currentStateIs(c.current);
    EXPECT_DEATH(sm.nextStateIs(c.next), c.text);
  }
}

TEST_F(States, fetch_retries_back_off_three_times_then_the_run_retries) {
  Sm& sm = atRest();
  for (int attempt = 1; attempt <= 4; ++attempt) {
    sm.currentStateIs(State::stateFetchConfig);
    sm.ZeroTouchSmModel::nextStateIs(State::stateFetchConfig);
    sm.nextStateIs(State::stateRetryFetchConfig);
    if (attempt <= 3) {
      EXPECT_EQ(runningTimer(), "ConfigFetchRetryTimer");
      EXPECT_EQ(sm.timer()->timeout(), 15 * attempt);
    }
  }
  EXPECT_EQ(sm.configFetchTryCounter(), 0);
  time.settle();
  EXPECT_EQ(sm.currentState(), State::stateRetry);
}

// The whole of a run as far as it goes without interfaces: two attempts, then the time limit, without the
// guard entry, so that provisioning starts again after the reload.
TEST_F(States, a_run_without_interfaces_retries_until_the_time_limit) {
  environment.unset("SYSNAME");
  Kel::activityManager()->config()->systemNameIs("sw1");
  platform.config->maxRunTimeIs(100);
  platform.config->enabledIs(true);
  inventoryIs(EntityMib::InitStatus::initialized);
  agent = createAgent();
  time.advance(45);
  EXPECT_EQ(takeEvents(),
            (Strings{"ZTP_INIT: No startup-config found, starting Zero Touch Provisioning",
                     "ZTP_RETRY: Retrying Zero Touch Provisioning from the beginning (attempt 1)"}));
  EXPECT_STREQ(std::getenv("SYSNAME"), "sw1");
  EXPECT_TRUE(platform.status->enabled());

  time.advance(59.9);
  EXPECT_EQ(sm().retryCount(), 2);
  EXPECT_EQ(platform.reloadConfig->reloadTime(), 0);
  time.advance(0.2);
  EXPECT_EQ(sm().currentState(), State::stateShutdown);
  EXPECT_EQ(takeEvents(),
            (Strings{"ZTP_RETRY: Retrying Zero Touch Provisioning from the beginning (attempt 2)",
                     "ZTP_RELOAD: Rebooting the system"}));
  EXPECT_EQ(platform.status->runTime(), 105);
  EXPECT_EQ(platform.reloadConfig->reason(), "ZTP RELOAD");
  EXPECT_EQ(platform.reloadConfig->reloadTime(), sm().startTime() + 105);
  EXPECT_EQ(settingsFile(), "(absent)");
}

TEST_F(States, a_limit_of_zero_or_a_forced_shutdown_ends_the_first_retry) {
  for (bool const forced : {false, true}) {
    if (forced) {
      environment.set("ZEROTOUCH_FORCE_SHUTDOWN", "1");
    } else {
      platform.config->maxRunTimeIs(0);
    }
    inventoryIs(EntityMib::InitStatus::initialized);
    platform.config->enabledIs(true);
    agent = createAgent();
    time.advance(45);
    EXPECT_EQ(sm().currentState(), State::stateShutdown);
    EXPECT_EQ(takeEvents(), (Strings{"ZTP_INIT: No startup-config found, starting Zero Touch Provisioning",
                                     "ZTP_RELOAD: Rebooting the system"}));
    startOver();
  }
}
