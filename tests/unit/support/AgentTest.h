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

// The 25 entities, as a platform would mount them.
struct FakePlatform {
  template <typename T>
  using Mount = Kel::Ptr<T>;

  Mount<ZeroTouch::Config> config = Kel::makePtr<ZeroTouch::Config>();
  Mount<ZeroTouch::Status> status = Kel::makePtr<ZeroTouch::Status>();
  Mount<ZeroTouch::DhcpStatus> dhcpStatus = Kel::makePtr<ZeroTouch::DhcpStatus>();
  Mount<Interface::AllEthPhyIntfConfigDir> epicd = Kel::makePtr<Interface::AllEthPhyIntfConfigDir>();
  Mount<Interface::AllEthPhyIntfStatusDir> episd = Kel::makePtr<Interface::AllEthPhyIntfStatusDir>();
  Mount<Interface::VlanIntfConfigDir> vicd = Kel::makePtr<Interface::VlanIntfConfigDir>();
  Mount<Interface::VlanIntfStatusDir> visd = Kel::makePtr<Interface::VlanIntfStatusDir>();
  Mount<Interface::AllIntfStatusDir> aisd = Kel::makePtr<Interface::AllIntfStatusDir>();
  Mount<Interface::AllIntfStatusLocalDir> aisld = Kel::makePtr<Interface::AllIntfStatusLocalDir>();
  Mount<KernelNetInfo::Status> kernelNetInfo = Kel::makePtr<KernelNetInfo::Status>();
  Mount<Interface::EthLagIntfStatusDir> elisd = Kel::makePtr<Interface::EthLagIntfStatusDir>();
  Mount<Interface::EthIntfStatusDir> eisd = Kel::makePtr<Interface::EthIntfStatusDir>();
  Mount<EntityMib::Status> entityMib = Kel::makePtr<EntityMib::Status>();
  Mount<Ip::Config> ipConfig = Kel::makePtr<Ip::Config>();
  Mount<L3::Intf::ConfigDir> l3ConfigDir = Kel::makePtr<L3::Intf::ConfigDir>();
  Mount<Ip::Status> ipStatus = Kel::makePtr<Ip::Status>();
  Mount<Ip6::Config> ip6Config = Kel::makePtr<Ip6::Config>();
  Mount<Ip6::Status> ip6Status = Kel::makePtr<Ip6::Status>();
  Mount<Routing::Config> routingConfig = Kel::makePtr<Routing::Config>();
  Mount<System::NetConfig> netConfig = Kel::makePtr<System::NetConfig>();
  Mount<System::NetStatus> netStatus = Kel::makePtr<System::NetStatus>();
  Mount<System::Reload::Config> reloadConfig = Kel::makePtr<System::Reload::Config>();
  Mount<FileReplication::Status> fileReplication = Kel::makePtr<FileReplication::Status>();
  Mount<LogMgr::LogConfig> logConfig = Kel::makePtr<LogMgr::LogConfig>();
  Mount<RouterAdvt::RaPacketStatus> raPacketStatus = Kel::makePtr<RouterAdvt::RaPacketStatus>();

  Kel::Ptr<ZeroTouch::AgentCreator> createAgent() const {
    return ZeroTouch::agentCreatorFactory(config, status, dhcpStatus, epicd, episd, vicd, visd, aisd, aisld,
                                          kernelNetInfo, elisd, eisd, entityMib, ipConfig, l3ConfigDir,
                                          ipStatus, ip6Config, ip6Status, routingConfig, netConfig, netStatus,
                                          reloadConfig, fileReplication, logConfig, raPacketStatus);
  }
};

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

  void inventoryIs(EntityMib::InitStatus status) { platform.entityMib->rootIs()->initStatusIs(status); }

  // Creates the agent with provisioning disabled, without the noise of that.
  Sm& atRest() {
    agent = platform.createAgent();
    time.settle();
    events.clear();
    return sm();
  }
  // Creates the agent, starts a run and stops time in stateRetry.
  Sm& inRetry() {
    atRest();
    inventoryIs(EntityMib::InitStatus::initialized);
    platform.config->enabledIs(true);
    time.settle();
    EXPECT_EQ(sm().currentState(), State::stateRetry);
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
  FakePlatform platform;
  Kel::Ptr<ZeroTouch::AgentCreator> agent;
  std::vector<std::string> events;  // "NAME: message" of each event raised

 private:
  int logSink_ = 0;
};

using Strings = std::vector<std::string>;

namespace ZeroTouch {
// So that a failing comparison names the state.
inline void PrintTo(ProvisioningState state, std::ostream* out) {
  *out << stringValue(state);
}
}  // namespace ZeroTouch
