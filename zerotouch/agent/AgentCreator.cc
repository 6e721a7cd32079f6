#include "zerotouch/agent/AgentCreator.h"

#include "platform/kel/ActivityManager.h"
#include "zerotouch/agent/ZeroTouchAgent.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

AgentCreator::~AgentCreator() {
  if (ztSm()) ztSm()->handleHostEnd();
  ztSmDel();
  ztPamManDel();
}

void AgentCreator::ztPamManIs(Kel::Name name,
                              Kel::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                              Kel::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir,
                              Kel::Ptr<KernelNetInfo::Status const> const& kernelNetInfoStatus) {
  ztPamMan_ =
      zeroTouchPamManFactory(std::move(name), allIntfStatusDir, allIntfStatusLocalDir, kernelNetInfoStatus);
}

void AgentCreator::handleInitialized() {
  KEL_TRACE(traceZeroTouchSm, 5, "AgentCreator::handleInitialized");
  if (initialized()) return;
  ztPamManIs("ztPamMan", aisd(), aisld(), kernelNetInfoStatus());
  auto const clock = Kel::activityManager()->config()->clock();
  auto const stateTransitionClock = Kel::activityManager()->config()->clock();
  passHandles([&](auto const&... handles) {
    ztSmIs(handles..., ztPamMan_->ethDevPamCollection(), ztPamMan_->pamDesiredIntfDir(), clock,
           stateTransitionClock);
  });
  initializedIs(true);
}

Kel::Ptr<AgentCreator> agentCreatorFactory(AGENT_HANDLE_PARAMETERS) {
  return AgentCreator::AgentCreatorIs(AGENT_HANDLES);
}

}  // namespace ZeroTouch
