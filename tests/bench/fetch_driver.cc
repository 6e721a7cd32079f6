// Downloads URLs as the agent does, into its fixed download file, and prints the seconds and the bytes of
// each.
#include <cstdio>
#include <filesystem>

#include "platform/kel/Loop.h"
#include "zerotouch/agent/MountedEntities.h"

namespace {

using State = ZeroTouch::ProvisioningState;

// An agent at the point where the identity is applied; the download follows.
bool download(char const* url) {
  ZeroTouch::MountedEntities platform;
  auto const agent = platform.createAgent(ZeroTouch::agentCreatorFactory);
  Kel::Loop& loop = Kel::Loop::instance();
  auto const& sm = agent->ztSm();
  loop.runUntil([&] { return sm->transitionState() == State::stateInvalid; }, 10);
  platform.entityMib->rootIs();
  platform.dhcpStatus->intfDhcpStatusIs("et1")->bootFileNameIs(url);
  auto const chosen = Kel::makePtr<ZeroTouch::IntfStatus>(Wire::IntfId("Ethernet1"), nullptr);
  chosen->kernelIntfNameIs("et1");
  sm->choosenIntfIs(chosen);
  sm->currentStateIs(State::stateSetupSystemIdentity);
  Kel::Seconds const start = Kel::now();
  sm->nextStateIs(State::stateFetchConfig);
  loop.runUntil([&] { return sm->transitionState() != State::stateInvalid; }, 100);
  std::printf("%.4f %u %s\n", Kel::now() - start, sm->bytesRead(), sm->curlErrorStr().c_str());
  return sm->curlSuccess();
}

}  // namespace

int main(int argc, char** argv) {
  int failed = 0;
  for (int i = 1; i < argc; ++i) failed += download(argv[i]) ? 0 : 1;
  return failed;
}
