#include "programs/zerotouchd/AgentLibrary.h"

#include <dlfcn.h>

#include <stdexcept>

AgentLibrary::AgentLibrary(Kel::String const& name) {
  void* const library = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(Kel::String("cannot load the agent: ") + dlerror());
  void* const symbol = dlsym(library, "agentCreatorFactory");
  if (symbol == nullptr) throw std::runtime_error(name + " is no agent library: " + dlerror());
  factory_ = reinterpret_cast<Factory>(symbol);
}
