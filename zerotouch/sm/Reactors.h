// The reactors of the state machine: what it watches, and which handler a change calls.
#pragma once

#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

class ZeroTouchSm::KelConfig : public Config::NotifieeConst {
 public:
  KelConfig(Kel::Ptr<Config const> const& config, ZeroTouchSm& sm) : NotifieeConst(config), sm_(sm) {}
  void onEnabled() override { sm_.handleEnabled(); }
  void onCancelled() override { sm_.handleCancelled(); }

 private:
  ZeroTouchSm& sm_;
};

class ZeroTouchSm::KelDhcpStatus : public DhcpStatus::NotifieeConst {
 public:
  KelDhcpStatus(Kel::Ptr<DhcpStatus const> const& dhcpStatus, ZeroTouchSm& sm)
      : NotifieeConst(dhcpStatus), sm_(sm) {}
  void onIntfDhcpStatus(Kel::Name const& name) override { sm_.handleIntfDhcpStatus(name); }
  void onIntfDhcp6Status(Kel::Name const& name) override { sm_.handleIntfDhcp6Status(name); }

 private:
  ZeroTouchSm& sm_;
};

class ZeroTouchSm::KelEpisd : public Interface::AllEthPhyIntfStatusDir::NotifieeConst {
 public:
  KelEpisd(Kel::Ptr<Interface::AllEthPhyIntfStatusDir const> const& episd, ZeroTouchSm& sm)
      : NotifieeConst(episd), sm_(sm) {}
  void onIntfStatus(Wire::IntfId const& intfId) override {
    sm_.ethPhyIntfStatusIs(intfId);
    sm_.handleEthPhyIntfStatus(intfId);
  }

 private:
  ZeroTouchSm& sm_;
};

class ZeroTouchSm::KelElisd : public Interface::EthLagIntfStatusDir::NotifieeConst {
 public:
  KelElisd(Kel::Ptr<Interface::EthLagIntfStatusDir const> const& elisd, ZeroTouchSm& sm)
      : NotifieeConst(elisd), sm_(sm) {}
  void onIntfStatus(Wire::IntfId const& intfId) override { sm_.handleEthLagIntfStatus(intfId); }

 private:
  ZeroTouchSm& sm_;
};

class ZeroTouchSm::KelEthDevPamCollection : public Interface::EthDevPamCollection::NotifieeConst {
 public:
  KelEthDevPamCollection(Kel::Ptr<Interface::EthDevPamCollection const> const& pams, ZeroTouchSm& sm)
      : NotifieeConst(pams), sm_(sm) {}
  void onIntfPam(Wire::IntfId const& intfId) override { sm_.handleEthDevPam(intfId); }

 private:
  ZeroTouchSm& sm_;
};

class ZeroTouchSm::KelEntityMibStatus : public EntityMib::Status::NotifieeConst {
 public:
  KelEntityMibStatus(Kel::Ptr<EntityMib::Status const> const& status, ZeroTouchSm& sm)
      : NotifieeConst(status), sm_(sm) {}
  void onRoot() override { sm_.handleEntityMibRoot(); }

 private:
  ZeroTouchSm& sm_;
};

class ZeroTouchSm::KelClock : public Kel::Clock::NotifieeConst {
 public:
  KelClock(Kel::Ptr<Kel::Clock const> const& clock, ZeroTouchSm& sm) : NotifieeConst(clock), sm_(sm) {}
  void onTime() override { sm_.handleTimer(); }

 private:
  ZeroTouchSm& sm_;
};

class ZeroTouchSm::KelStateTransitionClock : public Kel::Clock::NotifieeConst {
 public:
  KelStateTransitionClock(Kel::Ptr<Kel::Clock const> const& clock, ZeroTouchSm& sm)
      : NotifieeConst(clock), sm_(sm) {}
  void onTime() override { sm_.handleStateTransitionClock(); }

 private:
  ZeroTouchSm& sm_;
};

// Holds a child's record and watches its end.
template <void (ZeroTouchSm::*handler)()>
class ZeroTouchSm::KelChildProcess : public Kel::ChildSiginfo::NotifieeConst {
 public:
  KelChildProcess(Kel::Ptr<Kel::ChildSiginfo const> const& child, ZeroTouchSm& sm)
      : NotifieeConst(child), child_(child), sm_(sm) {}
  void onStatusCode() override { (sm_.*handler)(); }
  Kel::Ptr<Kel::ChildSiginfo const> const& child() const { return child_; }

 private:
  Kel::Ptr<Kel::ChildSiginfo const> child_;
  ZeroTouchSm& sm_;
};

}  // namespace ZeroTouch
