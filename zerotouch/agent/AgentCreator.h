// The agent as the host sees it. Construction alone brings everything up.
#pragma once

#include "platform/model/agent.h"
#include "zerotouch/intf/LldpWatch.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// Owns the packet-socket manager and the state machine. The handles are those that the schema of
// AgentCreatorModel lists, in its order.
class AgentCreator : public AgentCreatorModel {
 public:
  template <typename... Handles>
  explicit AgentCreator(Handles const&... handles) : AgentCreatorModel(handles...) {
    handleInitialized();
  }
  ~AgentCreator() override;

  template <typename... Handles>
  static Kel::Ptr<AgentCreator> AgentCreatorIs(Handles const&... handles) {
    auto agent = Kel::makePtr<AgentCreator>(handles...);
    agent->hasNotificationActiveIs(true);
    return agent;
  }

  Kel::Ptr<ZeroTouchPamMan> const& ztPamMan() const { return ztPamMan_; }
  void ztPamManIs(Kel::Name name, Kel::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                  Kel::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir,
                  Kel::Ptr<KernelNetInfo::Status const> const& kernelNetInfoStatus);
  void ztPamManDel() { ztPamMan_ = nullptr; }

  Kel::Ptr<ZeroTouchSm> ztSm() const {
    return Kel::Ptr<ZeroTouchSm>(static_cast<ZeroTouchSm*>(AgentCreatorModel::ztSm().get()));
  }
  // Takes what ZeroTouchSm's constructor takes.
  template <typename... Handles>
  void ztSmIs(Handles const&... handles) {
    AgentCreatorModel::ztSmIs(ZeroTouchSm::ZeroTouchSmIs(handles...));
  }
  void ztSmDel() { AgentCreatorModel::ztSmIs(nullptr); }

  // Does nothing the second time.
  void handleInitialized();

 private:
  Kel::Ptr<ZeroTouchPamMan> ztPamMan_;
};

}  // namespace ZeroTouch
