// Writes one answer's values into the platform's configuration, and tells of each in a summary.
#pragma once

#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// Each member applies one kind of value, if the answer has it, and adds what it applied to the summary.
class ZeroTouchSm::IdentityWriter {
 public:
  enum class Family { v4, v6 };

  // Writes the chosen answer of `sm`, which outlives the writer.
  explicit IdentityWriter(ZeroTouchSm& sm);

  void mtu();
  void address4();
  void address6();
  void hostname();
  void nameServers(Family family);
  void loggingHosts();
  void domainName();
  void staticRoutes();
  void gateways();
  // For the summary only.
  void bootFile();

  Kel::String const& summary() const { return summary_; }

 private:
  template <typename AddrWithMask>
  using Configure = void (ZeroTouchSm::*)(Kel::Ptr<IntfStatus> const&, AddrWithMask const&);

  template <typename AddrWithMask>
  void address(AddrWithMask const& addr, Configure<AddrWithMask> configure);
  void addRoute(Wire::IpAddrWithMask const& prefix, Wire::IpAddr const& hop);

  ZeroTouchSm& sm_;
  Kel::Ptr<IntfDhcpStatus const> answer_;
  Kel::Ptr<IntfStatus> intf_;
  Kel::String summary_;
};

}  // namespace ZeroTouch
