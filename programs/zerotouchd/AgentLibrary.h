// The agent's library, loaded at run time.
#pragma once

#include "zerotouch/agent/ZeroTouchAgent.h"

class AgentLibrary {
 public:
  using Factory = decltype(&ZeroTouch::agentCreatorFactory);

  // Loads the library: a path when `name` holds a "/", else by the dynamic linker's rules. Throws
  // std::runtime_error, with the linker's reason. Stays loaded until the process ends: its code is referred
  // to from everywhere.
  explicit AgentLibrary(Kel::String const& name);

  Factory factory() const { return factory_; }

 private:
  Factory factory_;
};
