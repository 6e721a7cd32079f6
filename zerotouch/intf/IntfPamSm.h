// Hears LLDP frames on one port. A neighbour that sends them shares a working link with the port, whose speed
// is then left alone for as long as the neighbour goes on.
#pragma once

#include "platform/kel/Clock.h"
#include "platform/model/agent.h"

namespace ZeroTouch {

class ZeroTouchSm;

// Owned by the port's record, which it must not outlive. Takes one frame per notification of its packet
// socket; nothing of the frame but its EtherType is looked at.
class IntfPamSm : public IntfPamSmModel {
 public:
  IntfPamSm(Kel::String name, Kel::Ptr<Wire::Pam> const& pam, ZeroTouchSm* ztSm, IntfStatus* intfStatus);

  void handleInitialized();
  void handlePamReadable();
  void handleLldpTimeout();

 private:
  class KelPam : public Wire::Pam::NotifieeConst {
   public:
    KelPam(Kel::Ptr<Wire::Pam const> const& pam, IntfPamSm& owner) : NotifieeConst(pam), owner_(owner) {}
    void onReadableCount() override { owner_.handlePamReadable(); }

   private:
    IntfPamSm& owner_;
  };
  class KelIntfLldpClock : public Kel::Clock::NotifieeConst {
   public:
    KelIntfLldpClock(Kel::Ptr<Kel::Clock const> const& clock, IntfPamSm& owner)
        : NotifieeConst(clock), owner_(owner) {}
    void onTime() override { owner_.handleLldpTimeout(); }

   private:
    IntfPamSm& owner_;
  };

  void handleLldpFrame();

  ZeroTouchSm* ztSm_;
  IntfStatus* intfStatus_;
  Kel::Ptr<KelPam> kelPam_;
  Kel::Ptr<KelIntfLldpClock> intfLldpClock_;
};

}  // namespace ZeroTouch
