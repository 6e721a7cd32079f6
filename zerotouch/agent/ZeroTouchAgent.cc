#include "zerotouch/agent/ZeroTouchAgent.h"

namespace ZeroTouch {

Kel::Ptr<AgentCreator> agentCreatorFactory(AGENT_HANDLE_PARAMETERS) {
  return AgentCreator::AgentCreatorIs(AGENT_HANDLES);
}

}  // namespace ZeroTouch
