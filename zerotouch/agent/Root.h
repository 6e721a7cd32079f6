// The root of the agent's own tree.
#pragma once

#include "zerotouch/agent/AgentCreator.h"

namespace ZeroTouch {

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
