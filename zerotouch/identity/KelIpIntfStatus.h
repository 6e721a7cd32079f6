// The reactors on an interface's addresses: once the applied one is active, the download can start.
#pragma once

#include "zerotouch/sm/Reactors.h"

namespace ZeroTouch {

class ZeroTouchSm::KelIpIntfStatus : public Reactor<Ip::IpIntfStatus> {
 public:
  using Reactor::Reactor;
  void onActiveAddrWithMask() override { handleActiveAddrWithMask(); }

  void handleActiveAddrWithMask();
};

class ZeroTouchSm::KelIp6IntfStatus : public Reactor<Ip6::IntfStatus> {
 public:
  using Reactor::Reactor;
  void onAddr(Wire::Ip6AddrWithMask const& addr) override { handleAddr(addr); }

  void handleAddr(Wire::Ip6AddrWithMask const& addr);
};

}  // namespace ZeroTouch
