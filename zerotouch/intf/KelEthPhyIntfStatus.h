// What happens on one physical port: its link, its forwarding model, the speeds it can run at.
#pragma once

#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// Exists for every port of the platform's directory, whatever the state of provisioning. Keeps the pool of
// ports whose speed is left alone: those with a link, for 120 seconds after it came up, and those that are
// not active.
class ZeroTouchSm::KelEthPhyIntfStatus : public Interface::EthPhyIntfStatus::NotifieeConst {
 public:
  KelEthPhyIntfStatus(Kel::Ptr<Interface::EthPhyIntfStatus const> const& port, ZeroTouchSm& sm);

  void onDeviceName() override;
  void onForwardingModel() override { handleForwardingModel(); }
  void onLinkStatus() override { handleLinkAndActiveStatus(intfId()); }
  void onActive() override { handleLinkAndActiveStatus(intfId()); }
  void onLinkModeCapabilities() override { handleLinkModeCapabilities(intfId()); }
  void onAutonegCapability() override { handleLinkModeCapabilities(intfId()); }

  void handleInitialized(Wire::IntfId const& intfId);
  void handleLinkAndActiveStatus(Wire::IntfId const& intfId);
  void handleLinkActiveTimeout(Wire::IntfId const& intfId);
  void handleRunStart();
  void handleForwardingModel();
  void handleLinkModeCapabilities(Wire::IntfId const& intfId);

  Kel::Ptr<Interface::EthPhyIntfStatus const> const& port() const { return port_; }

 private:
  class KelIntfLinkActiveClock : public Kel::Clock::NotifieeConst {
   public:
    KelIntfLinkActiveClock(Kel::Ptr<Kel::Clock const> const& clock, KelEthPhyIntfStatus& owner)
        : NotifieeConst(clock), owner_(owner) {}
    void onTime() override { owner_.handleLinkActiveTimeout(owner_.intfId()); }

   private:
    KelEthPhyIntfStatus& owner_;
  };

  Wire::IntfId const& intfId() const { return port_->intfId(); }
  bool canRunAt10GAnd40G(Wire::IntfId const& intfId) const;

  Kel::Ptr<Interface::EthPhyIntfStatus const> port_;
  ZeroTouchSm& sm_;
  Kel::Ptr<KelIntfLinkActiveClock> intfLinkActiveClock_;
};

}  // namespace ZeroTouch
