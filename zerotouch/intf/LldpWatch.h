// Hearing LLDP frames on ports. A neighbour that sends them shares a working link with the port, whose speed
// is then left alone for as long as the neighbour goes on.
#pragma once

#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/model/agent.h"
#include "zerotouch/intf/LldpNeighbour.h"

namespace ZeroTouch {

class ZeroTouchSm;

// The watch on one port. Owned by the port's record, which it must not outlive. Takes one frame per
// notification of its packet socket. Only the EtherType of the frame decides anything; who the neighbour says
// it is, is kept for people.
class IntfPamSm : public IntfPamSmModel {
 public:
  IntfPamSm(Kel::String name, Kel::Ptr<Wire::Pam> const& pam, ZeroTouchSm* ztSm, IntfStatus* intfStatus);

  ZeroTouchSm* ztSm() const { return ztSm_; }
  IntfStatus* intfStatus() const { return intfStatus_; }
  // The clock that tells when the neighbour has been silent for too long.
  Kel::Ptr<Kel::Clock const> const& intfLldpClock() const { return intfLldpClock_; }

  void handleInitialized();
  void handlePamReadable();
  void handleLldpTimeout();

 private:
  void handleLldpFrame(LldpNeighbour const& neighbour);

  ZeroTouchSm* ztSm_;
  IntfStatus* intfStatus_;
  Kel::Ptr<Kel::Clock const> intfLldpClock_;
  Kel::Alarm hold_;
  Kel::Reactor readable_;
};

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
