// The library's entry point: the symbol that the host looks up, and the environment that children are given.
#pragma once

#include <array>

#include "platform/model/handles.h"
#include "zerotouch/agent/AgentCreator.h"

namespace ZeroTouch {

// The variables that the DHCP clients are handed, so that their hook can reach the state tree.
inline constexpr std::array defaultEnvVars = {"SYSNAME", "STATEBASESOCKNAME", "STATEBASEPORT"};

// Makes the agent from the mounted entities; it runs from here on, on the caller's loop, until the handle is
// dropped. The symbol is the plain name. Nothing is thrown.
extern "C" Kel::Ptr<AgentCreator> agentCreatorFactory(AGENT_HANDLE_PARAMETERS);

}  // namespace ZeroTouch
