// The reactors on one DHCP result: a boot-file name chooses the interface, a failure may end the query.
#pragma once

#include "zerotouch/sm/Reactors.h"

namespace ZeroTouch {

// What the results of both families have in common. Acts in the two query states only: a client that was
// stopped may still report, and the client that releases a lease reports through the same record.
class ZeroTouchSm::KelIntfDhcpResult : public Reactor<IntfDhcpStatus> {
 public:
  using Reactor::Reactor;
  void onBootFileName() override { handleBootFileName(); }

  void handleBootFileName();
};

// DHCPv4.
class ZeroTouchSm::KelIntfDhcpStatus : public KelIntfDhcpResult {
 public:
  using KelIntfDhcpResult::KelIntfDhcpResult;
  void onReason() override { handleIntfDhcpReason(); }

  void handleIntfDhcpReason();
};

// DHCPv6, whose client never reports a failure.
class ZeroTouchSm::KelIntfDhcp6Status : public KelIntfDhcpResult {
 public:
  using KelIntfDhcpResult::KelIntfDhcpResult;
};

}  // namespace ZeroTouch
