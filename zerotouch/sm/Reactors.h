// The reactors of the state machine: what it watches, and which handler a change calls.
#pragma once

#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

template <typename Watched>
class ZeroTouchSm::Reactor : public Watched::NotifieeConst {
 public:
  Reactor(Kel::Ptr<Watched const> const& entity, ZeroTouchSm& sm) : Watched::NotifieeConst(entity), sm_(sm) {}

 protected:
  ZeroTouchSm& sm_;  // the owner
};

class ZeroTouchSm::KelConfig : public Reactor<Config> {
 public:
  using Reactor::Reactor;
  void onEnabled() override { sm_.handleEnabled(); }
  void onCancelled() override { sm_.handleCancelled(); }
  void onScriptExecTimeout() override { sm_.handleScriptExecTimeoutValue(); }
};

class ZeroTouchSm::KelDhcpStatus : public Reactor<DhcpStatus> {
 public:
  using Reactor::Reactor;
  void onIntfDhcpStatus(Kel::Name const& name) override { sm_.handleIntfDhcpStatus(name); }
  void onIntfDhcp6Status(Kel::Name const& name) override { sm_.handleIntfDhcp6Status(name); }
};

class ZeroTouchSm::KelIpStatus : public Reactor<Ip::Status> {
 public:
  using Reactor::Reactor;
  void onIpIntfStatus(Wire::IntfId const& intfId) override { sm_.ipIntfStatusIs(intfId); }
};

class ZeroTouchSm::KelIp6Status : public Reactor<Ip6::Status> {
 public:
  using Reactor::Reactor;
  void onIntf(Wire::IntfId const& intfId) override { sm_.ip6IntfStatusIs(intfId); }
};

class ZeroTouchSm::KelEpisd : public Reactor<Interface::AllEthPhyIntfStatusDir> {
 public:
  using Reactor::Reactor;
  void onIntfStatus(Wire::IntfId const& intfId) override {
    sm_.ports_->ethPhyIntfStatusIs(intfId);
    sm_.handleEthPhyIntfStatus(intfId);
  }
};

class ZeroTouchSm::KelElisd : public Reactor<Interface::EthLagIntfStatusDir> {
 public:
  using Reactor::Reactor;
  void onIntfStatus(Wire::IntfId const& intfId) override {
    sm_.ports_->ethLagIntfStatusIs(intfId);
    sm_.handleEthLagIntfStatus(intfId);
  }
};

class ZeroTouchSm::KelEthDevPamCollection : public Reactor<Interface::EthDevPamCollection> {
 public:
  using Reactor::Reactor;
  void onIntfPam(Wire::IntfId const& intfId) override { sm_.handleEthDevPam(intfId); }
};

class ZeroTouchSm::KelEntityMibStatus : public Reactor<EntityMib::Status> {
 public:
  using Reactor::Reactor;
  void onRoot() override { sm_.handleEntityMibRoot(); }
};

class ZeroTouchSm::KelClock : public Reactor<Kel::Clock> {
 public:
  using Reactor::Reactor;
  void onTime() override { sm_.handleTimer(); }
};

class ZeroTouchSm::KelStateTransitionClock : public Reactor<Kel::Clock> {
 public:
  using Reactor::Reactor;
  void onTime() override { sm_.handleStateTransitionClock(); }
};

// Holds the watch of the transfer's socket.
class ZeroTouchSm::KelCurlSockFd : public Reactor<Kel::FileDescriptor> {
 public:
  KelCurlSockFd(Kel::Ptr<Kel::FileDescriptor> const& descriptor, ZeroTouchSm& sm)
      : Reactor(descriptor, sm), descriptor_(descriptor) {}
  void onReadableCount() override { sm_.handleCurlSockFd(); }
  void onWritableCount() override { sm_.handleCurlSockFd(); }
  Kel::Ptr<Kel::FileDescriptor> const& descriptor() const { return descriptor_; }

 private:
  Kel::Ptr<Kel::FileDescriptor> descriptor_;
};

// Holds a child's record and watches its end.
template <void (ZeroTouchSm::*handler)()>
class ZeroTouchSm::KelChildProcess : public Reactor<Kel::ChildSiginfo> {
 public:
  KelChildProcess(Kel::Ptr<Kel::ChildSiginfo const> const& child, ZeroTouchSm& sm)
      : Reactor(child, sm), child_(child) {}
  void onStatusCode() override { (sm_.*handler)(); }
  Kel::Ptr<Kel::ChildSiginfo const> const& child() const { return child_; }

 private:
  Kel::Ptr<Kel::ChildSiginfo const> child_;
};

}  // namespace ZeroTouch
