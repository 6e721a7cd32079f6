// Ports that become fit to be asked while a query runs.
#pragma once

#include <set>

#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

// In stateDhcpQuery, asks again as soon as a port that was not asked gets its link, or for DHCPv6 an
// advertisement that says so: otherwise it would have to wait for the next query. A family's client is then
// started again, on all of its ports; the query's timer runs on. Each port causes that once in a query.
class ZeroTouchSm::LateLinks {
 public:
  // The state machine must outlive the object, and is its owner.
  explicit LateLinks(ZeroTouchSm& sm);

  // To be called when a query has begun, with the devices that are asked by DHCPv4 and DHCPv6.
  void queryIs(std::vector<Kel::String> const& devices, std::vector<Kel::String> const& devices6);

 private:
  void handleChange();
  void ask();

  ZeroTouchSm& sm_;
  std::set<Kel::String> asked_;
  std::set<Kel::String> asked6_;
  // Links come one after the other, and a client should not be ended before it could hear an answer.
  Kel::Alarm soon_;
  Kel::EntryReactors<Wire::IntfId> ports_;
  Kel::EntryReactors<Wire::IntfId> advertisements_;
};

}  // namespace ZeroTouch
