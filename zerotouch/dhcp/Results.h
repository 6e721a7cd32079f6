// The reactors on the DHCP results: a boot-file name chooses the interface, a failure may end the query.
#pragma once

#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// One reactor for each record of the DHCP results, by kernel device.
struct ZeroTouchSm::DhcpResults {
  class KelIntfDhcpResult;
  class KelIntfDhcpStatus;
  class KelIntfDhcp6Status;

  std::map<Kel::Name, Kel::Ptr<KelIntfDhcpStatus>> intfDhcpStatus;
  std::map<Kel::Name, Kel::Ptr<KelIntfDhcp6Status>> intfDhcp6Status;
};

// What the results of both families have in common. Acts in the two query states only: a client that was
// stopped may still report, and the client that releases a lease reports through the same record.
class ZeroTouchSm::DhcpResults::KelIntfDhcpResult : public IntfDhcpStatus::NotifieeConst {
 public:
  KelIntfDhcpResult(Kel::Ptr<IntfDhcpStatus const> const& result, ZeroTouchSm& sm)
      : NotifieeConst(result), sm_(sm) {}
  void onBootFileName() override { handleBootFileName(); }

  void handleBootFileName();

 protected:
  virtual bool isDhcpv6() const { return false; }

  ZeroTouchSm& sm_;  // the owner
};

// DHCPv4.
class ZeroTouchSm::DhcpResults::KelIntfDhcpStatus : public KelIntfDhcpResult {
 public:
  using KelIntfDhcpResult::KelIntfDhcpResult;
  void onReason() override { handleIntfDhcpReason(); }

  void handleIntfDhcpReason();
};

// DHCPv6, whose client never reports a failure.
class ZeroTouchSm::DhcpResults::KelIntfDhcp6Status : public KelIntfDhcpResult {
 public:
  using KelIntfDhcpResult::KelIntfDhcpResult;

 protected:
  bool isDhcpv6() const override { return true; }
};

}  // namespace ZeroTouch
