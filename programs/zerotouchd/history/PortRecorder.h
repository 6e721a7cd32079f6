// Writes down the links of the ports, what IPv6 routers advertise there, and what the DHCP clients report.
#pragma once

#include <map>
#include <set>

#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/model/handles.h"
#include "programs/zerotouchd/history/Ring.h"

class PortRecorder {
 public:
  PortRecorder(ZeroTouch::MountedEntities const& entities, Ring<History::Port>& ring);
  PortRecorder(PortRecorder const&) = delete;
  PortRecorder& operator=(PortRecorder const&) = delete;

 private:
  enum class Family { v4, v6 };

  void portCame(Wire::IntfId const& id);
  void noteLink(Interface::EthIntfStatus const& port);
  void reported(Family family, Kel::Name const& device);
  void routerCame(Wire::IntfId const& id);
  void writeReports();
  void writeRouter(Wire::IntfId const& id);
  Kel::String portOf(Kel::String const& device) const;

  Kel::Ptr<Interface::AllEthPhyIntfStatusDir const> dir_;
  Kel::Ptr<ZeroTouch::DhcpStatus const> dhcp_;
  Ring<History::Port>& ring_;
  Kel::Reactor ports_;
  Kel::Reactor answers4_;
  Kel::Reactor answers6_;
  Kel::Ptr<RouterAdvt::RaPacketStatus const> advertisements_;
  Kel::Reactor routers_;
  std::map<Wire::IntfId, Kel::Reactor> flags_;
  std::set<Wire::IntfId> pendingRouters_;  // as pending_
  std::map<Wire::IntfId, Kel::Reactor> links_;
  // Devices whose record has changed, with the time. A report makes the record anew and then fills it
  // attribute by attribute, so it is read on the next pass of the loop.
  std::map<std::pair<Family, Kel::Name>, Kel::Seconds> pending_;
  Kel::Alarm alarm_{[this] { writeReports(); }};
};
