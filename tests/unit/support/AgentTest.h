// The whole agent on a platform of plain entities: simulated time, fake children, a flash folder of its own.
#pragma once

#include <gtest/gtest.h>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Log.h"
#include "platform/kel/testing/FakeChildRunner.h"
#include "platform/kel/testing/SimulatedTime.h"
#include "tests/unit/support/Environment.h"
#include "tests/unit/support/TemporaryFolder.h"
#include "zerotouch/agent/ZeroTouchAgent.h"

class AgentTest : public ::testing::Test {
 protected:
  using Sm = ZeroTouch::ZeroTouchSm;
  using State = Sm::State;

  AgentTest() {
    environment.set("FILESYSTEM_ROOT", flash.path());
    std::filesystem::create_directory(flash.path("/flash"));
    logSink_ = Kel::logSinkIs(
        [this](Kel::LogEvent const& event) { events.push_back(event.name + ": " + event.message); });
  }
  ~AgentTest() override {
    agent = nullptr;
    Kel::logSinkDel(logSink_);
    Kel::activityManager()->config()->cellTypeIs("fixed");
  }

  Kel::Ptr<ZeroTouch::AgentCreator> createAgent() const {
    return platform.createAgent(ZeroTouch::agentCreatorFactory);
  }
  // Drops the agent and gives the next one a platform that knows of nothing.
  void startOver() {
    agent = nullptr;
    platform = {};
    children.started.clear();
    events.clear();
  }
  void inventoryIs(EntityMib::InitStatus status) { platform.entityMibStatus->rootIs()->initStatusIs(status); }

  // Creates the agent with provisioning disabled, and forgets the events of that.
  Sm& atRest() {
    agent = createAgent();
    time.settle();
    events.clear();
    return sm();
  }
  // Creates the agent, starts a run and stops time in stateRetry.
  Sm& inRetry() {
    atRest();
    inventoryIs(EntityMib::InitStatus::initialized);
    platform.config->enabledIs(true);
    EXPECT_TRUE(time.advanceUntil([this] { return sm().currentState() == State::stateRetry; }, 100));
    events.clear();
    return sm();
  }
  Sm& sm() { return *agent->ztSm(); }
  // The running timer's class; "" when none runs.
  std::string runningTimer() { return sm().timerActive() ? sm().timer()->name() : ""; }
  std::string settingsFile() const { return flash.read("/flash/zerotouch-config"); }
  std::vector<std::string> takeEvents() { return std::exchange(events, {}); }

  Environment environment;
  TemporaryFolder flash;
  Kel::testing::SimulatedTime time;
  Kel::testing::FakeChildRunner children;
  ZeroTouch::MountedEntities platform;
  Kel::Ptr<ZeroTouch::AgentCreator> agent;
  std::vector<std::string> events;  // "NAME: message" of each event raised

 private:
  int logSink_ = 0;
};

using Strings = std::vector<std::string>;

namespace ZeroTouch {
// So that a failing comparison names the state.
inline void PrintTo(ProvisioningState state, std::ostream* out) { *out << stringValue(state); }
}  // namespace ZeroTouch
