// The host: all that stands around the agent, built up in the order of its members and taken down the other
// way round.
#pragma once

#include <memory>
#include <optional>

#include "platform/statebase/Server.h"
#include "programs/zerotouchd/AgentLibrary.h"
#include "programs/zerotouchd/Children.h"
#include "programs/zerotouchd/EventRing.h"
#include "programs/zerotouchd/HostConfig.h"
#include "programs/zerotouchd/LinuxPlatform.h"
#include "programs/zerotouchd/ReloadMark.h"
#include "programs/zerotouchd/history/Recorder.h"

class Host {
 public:
  // `initialValues`: a file with values for entities; "" for none. `openTree`: root may write all of them.
  // Throws Statebase::InitialValuesError, and std::runtime_error for what this system does not let it do.
  Host(HostConfig config, std::string initialValues, bool openTree);
  ~Host();
  Host(Host const&) = delete;
  Host& operator=(Host const&) = delete;

  // Runs the loop until a signal ends it. The exit code.
  int run();

 private:
  void buildTree(bool openTree);
  void applyInitialValues();
  void listenToSignals();
  void serve();
  void decideProvisioning();
  void startAgent();

  HostConfig const config_;
  std::string const initialValues_;
  ZeroTouch::MountedEntities entities_;
  EventRing events_;
  Recorder history_{entities_};
  Statebase::Tree tree_;
  std::optional<Statebase::Server> server_;
  std::optional<Children> children_;
  std::optional<ReloadMark> reloadMark_;
  std::unique_ptr<LinuxPlatform> platform_;
  std::optional<AgentLibrary> library_;
  Kel::Ptr<ZeroTouch::AgentCreatorModel> agent_;
};
