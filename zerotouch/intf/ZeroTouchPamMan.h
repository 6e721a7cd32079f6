// The packet sockets on which LLDP frames are heard.
#pragma once

#include "platform/model/agent.h"

namespace ZeroTouch {

// Holds the directories through which the rest of the agent asks for packet sockets and gets them, and the
// requests by which the platform learns of both: local entities of the activity manager.
class ZeroTouchPamMan : public ZeroTouchPamManModel {
 public:
  ZeroTouchPamMan(Kel::Name name, Kel::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
                  Kel::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir,
                  Kel::Ptr<KernelNetInfo::Status const> kernelNetInfoStatus);

  ~ZeroTouchPamMan() override;

  void handleInitialized();
};

Kel::Ptr<ZeroTouchPamMan> zeroTouchPamManFactory(
    Kel::Name name, Kel::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
    Kel::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir,
    Kel::Ptr<KernelNetInfo::Status const> const& kernelNetInfoStatus);

}  // namespace ZeroTouch
