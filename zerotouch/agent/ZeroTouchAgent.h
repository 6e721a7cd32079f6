// The library's entry point: the symbol that the host looks up, the environment that children are given, and
// the root of the agent's own tree.
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

class Root : public Kel::Entity {
 public:
  explicit Root(Kel::Name name) : name_(std::move(name)) {}

  Kel::Name const& name() const { return name_; }
  bool hasBackupSupport() const { return false; }

  Kel::Ptr<AgentCreator> const& agent() const { return agent_; }
  // Creates the one agent from the 25 handles, or returns the one there is.
  template <typename... Handles>
  Kel::Ptr<AgentCreator> const& agentIs(Handles const&... handles) {
    if (!agent_) agent_ = AgentCreator::AgentCreatorIs(handles...);
    return agent_;
  }
  void agentDel() { agent_ = nullptr; }

 private:
  Kel::Name name_;
  Kel::Ptr<AgentCreator> agent_;
};

}  // namespace ZeroTouch
