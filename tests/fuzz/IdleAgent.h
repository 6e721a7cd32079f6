// The agent on a platform of plain entities, switched off.
#pragma once

#include "platform/kel/testing/SimulatedTime.h"
#include "zerotouch/agent/ZeroTouchAgent.h"

struct IdleAgent {
  Kel::testing::SimulatedTime time;
  ZeroTouch::MountedEntities platform;
  Kel::Ptr<ZeroTouch::AgentCreator> agent = platform.createAgent(ZeroTouch::agentCreatorFactory);

  IdleAgent() { time.settle(); }
  ZeroTouch::ZeroTouchSm& sm() const { return *agent->ztSm(); }
};
