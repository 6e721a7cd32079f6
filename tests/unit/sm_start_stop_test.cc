// What starts a run, and what disabling and cancelling do at any time.
#include "tests/unit/support/AgentTest.h"

namespace {

std::string const started = "ZTP_INIT: No startup-config found, starting Zero Touch Provisioning";
std::string const stopped = "ZTP_CANCEL: Cancelling Zero Touch Provisioning";
std::string const reloading = "ZTP_RELOAD: Rebooting the system";

}  // namespace

class StartStop : public AgentTest {
 protected:
  // Puts a resting machine into `state`, as if a run had come that far.
  Sm& inState(State state) {
    atRest();
    inventoryIs(EntityMib::InitStatus::initialized);
    sm().enabledIs(true);
    platform.status->enabledIs(true);
    sm().currentStateIs(state);
    sm().ZeroTouchSmModel::nextStateIs(state);
    platform.config->enabledIs(true);
    sm().doStartRetryWaitTimer();
    EXPECT_EQ(sm().currentState(), state);
    return sm();
  }
};

TEST_F(StartStop, a_run_starts_once_provisioning_is_enabled_and_the_inventory_is_ready) {
  using Steps = std::vector<std::function<void()>>;
  auto const enable = [this] { platform.config->enabledIs(true); };
  auto const create = [this] { agent = createAgent(); };
  auto const root = [this] { platform.entityMib->rootIs(); };
  auto const ready = [this] { inventoryIs(EntityMib::InitStatus::initialized); };
  auto const failed = [this] { inventoryIs(EntityMib::InitStatus::failed); };
  auto const secondRoot = [this] {
    platform.entityMib->rootDel();
    auto const other = Kel::makePtr<EntityMib::Fru>();
    other->initStatusIs(EntityMib::InitStatus::initialized);
    platform.entityMib->rootIs(other);
  };
  for (Steps const& steps :
       {Steps{enable, ready, create}, Steps{enable, create, ready}, Steps{create, enable, ready},
        Steps{create, ready, enable}, Steps{create, root, enable, failed, ready},
        Steps{enable, create, failed, secondRoot}}) {
    for (std::size_t i = 0; i < steps.size(); ++i) {
      EXPECT_FALSE(agent && sm().currentState() != State::stateInit) << "before step " << i;
      steps[i]();
    }
    time.settle();
    EXPECT_EQ(sm().currentState(), State::stateSetupInterfaces);
    EXPECT_EQ(std::count(events.begin(), events.end(), started), 1);
    EXPECT_TRUE(platform.status->enabled());
    startOver();
  }
}

TEST_F(StartStop, a_disabled_agent_rests_and_asks_for_nothing) {
  inventoryIs(EntityMib::InitStatus::initialized);
  agent = createAgent();
  time.advance(100'000);
  EXPECT_EQ(sm().currentState(), State::stateInit);
  EXPECT_EQ(takeEvents(), Strings{stopped});
  EXPECT_EQ(runningTimer(), "");
  EXPECT_TRUE(children.started.empty());
  EXPECT_TRUE(children.ranAndWaited.empty());
  EXPECT_EQ(platform.reloadConfig->reloadTime(), 0);
}

TEST_F(StartStop, the_start_lets_the_clean_up_script_run_for_both_families) {
  environment.set("reason", "something else");
  Strings reasons;
  children.onRunAndWait = [&reasons](char const*) {
    reasons.emplace_back(std::getenv("reason"));
    return 1;
  };
  inRetry();
  EXPECT_EQ(children.ranAndWaited, Strings(2, "/usr/bin/zerotouch-dhclient-script"));
  EXPECT_EQ(reasons, (Strings{"CLEANUP", "CLEANUP6"}));
  EXPECT_EQ(std::getenv("reason"), nullptr);
}

constexpr ZeroTouch::ProvisioningState everyRunningState[] = {
    ZeroTouch::ProvisioningState::stateSetupInterfaces,
    ZeroTouch::ProvisioningState::stateDhcpQuery,
    ZeroTouch::ProvisioningState::stateStatelessDhcpQuery,
    ZeroTouch::ProvisioningState::stateSetupSystemIdentity,
    ZeroTouch::ProvisioningState::stateFetchConfig,
    ZeroTouch::ProvisioningState::stateRetryFetchConfig,
    ZeroTouch::ProvisioningState::stateCopyConfigOrExecScript,
    ZeroTouch::ProvisioningState::stateRetry};

TEST_F(StartStop, cancelling_in_any_state_writes_the_guard_entry_and_reloads_once) {
  for (State const state : everyRunningState) {
    flash.write("/flash/zerotouch-config", "KEEP=me\n");
    Sm& sm = inState(state);
    platform.config->cancelledIs(true);
    time.advance(1000);
    EXPECT_EQ(sm.currentState(), State::stateShutdown);
    EXPECT_EQ(takeEvents(), (Strings{stopped, reloading}));
    EXPECT_EQ(settingsFile(), "DISABLE=NextReload\nKEEP=me\n");
    EXPECT_EQ(platform.reloadConfig->reason(), "ZTP RELOAD");
    startOver();
  }
}

TEST_F(StartStop, switching_to_and_fro_within_one_pass_never_rests_while_enabled) {
  Sm& sm = inRetry();
  platform.config->enabledIs(false);
  platform.config->enabledIs(true);
  time.settle();
  EXPECT_EQ(sm.currentState(), State::stateSetupInterfaces);
  EXPECT_EQ(std::count(events.begin(), events.end(), started), 1);

  platform.config->enabledIs(false);
  time.settle();
  events.clear();
  for (int i = 0; i < 3; ++i) {  // from rest, where the pending stop leads to the state that is already held
    platform.config->enabledIs(true);
    platform.config->enabledIs(false);
  }
  platform.config->enabledIs(true);
  time.settle();
  EXPECT_EQ(sm.currentState(), State::stateSetupInterfaces);
  EXPECT_EQ(runningTimer(), "InterfacesSetupTimer");
}

TEST_F(StartStop, the_agents_own_cancel_disables_and_a_cancel_while_disabled_does_nothing) {
  inRetry();
  sm().doCancelZeroTouch();
  time.settle();
  EXPECT_EQ(sm().currentState(), State::stateInit);
  events.clear();
  platform.config->cancelledIs(true);
  time.settle();
  EXPECT_EQ(sm().currentState(), State::stateInit);
  EXPECT_EQ(takeEvents(), Strings{});
}
