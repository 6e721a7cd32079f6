// Writes down the links of the ports, and what the DHCP clients report.
#pragma once

#include <map>

#include "platform/kel/Clock.h"
#include "platform/model/handles.h"
#include "programs/zerotouchd/history/Ring.h"

class PortRecorder {
 public:
  PortRecorder(ZeroTouch::MountedEntities const& entities, Ring<History::Port>& ring);
  ~PortRecorder();
  PortRecorder(PortRecorder const&) = delete;
  PortRecorder& operator=(PortRecorder const&) = delete;

 private:
  enum class Family { v4, v6 };
  class Ports;
  class Link;
  class Dhcp;

  void portCame(Wire::IntfId const& id);
  void reported(Family family, Kel::Name const& device);
  void writeReports();
  Kel::String portOf(Kel::String const& device) const;

  Kel::Ptr<Interface::AllEthPhyIntfStatusDir const> dir_;
  Kel::Ptr<ZeroTouch::DhcpStatus const> dhcp_;
  Ring<History::Port>& ring_;
  Kel::Ptr<Ports> ports_;
  Kel::Ptr<Dhcp> dhcpReactor_;
  std::map<Wire::IntfId, Kel::Ptr<Link>> links_;
  // A report replaces the record and then fills it; it is looked at once that is done.
  std::map<std::pair<Family, Kel::Name>, Kel::Seconds> pending_;
  Kel::Alarm alarm_{[this] { writeReports(); }};
};
