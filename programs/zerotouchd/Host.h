// The host: everything around the agent. It is built in the order of its members and taken down in the
// reverse order.
#pragma once

#include <memory>
#include <optional>

#include "platform/statebase/Server.h"
#include "programs/zerotouchd/Boot.h"
#include "programs/zerotouchd/Children.h"
#include "programs/zerotouchd/Events.h"
#include "programs/zerotouchd/LastWords.h"
#include "programs/zerotouchd/Platform.h"
#include "programs/zerotouchd/history/Recorder.h"
#include "programs/zerotouchd/history/RunMemory.h"
#include "zerotouch/agent/ZeroTouchAgent.h"

using AgentFactory = decltype(&ZeroTouch::agentCreatorFactory);

// Loads the agent's library and returns its factory. `library` is a path when it holds a "/", else the
// dynamic linker looks for it. Throws std::runtime_error with the linker's reason. The library stays loaded
// until the process ends, since its code is referred to from everywhere.
AgentFactory loadAgent(Kel::String const& library);

class Host {
 public:
  // `initialValues` is a file with values for entities, or "". `openTree` lets root write all of them from
  // outside. Throws Statebase::InitialValuesError, and std::runtime_error for what this system does not let
  // it do.
  Host(HostConfig config, std::string initialValues, bool openTree);
  ~Host();
  Host(Host const&) = delete;
  Host& operator=(Host const&) = delete;

  // Runs the loop until a signal ends it, and returns the exit code.
  int run();

 private:
  void buildTree(bool openTree);
  void applyInitialValues();
  void listenToSignals();
  void serve();
  void rememberLastHost();
  void decideProvisioning();
  void startAgent();

  HostConfig const config_;
  std::string const initialValues_;
  ZeroTouch::MountedEntities entities_;
  EventRing events_;
  Recorder history_{entities_};
  Statebase::Tree tree_;
  std::optional<Statebase::Server> server_;
  std::optional<LastWords> lastWords_;
  std::optional<Children> children_;
  std::optional<ReloadMark> reloadMark_;
  Kel::String offBecause_;  // why provisioning was off at the start; empty when it was on
  std::optional<RunMemory> memory_;
  std::unique_ptr<Linux::Adapter> platform_;
  Kel::Ptr<ZeroTouch::AgentCreatorModel> agent_;
};
