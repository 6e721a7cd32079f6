// Serves a packet-socket manager: keeps one socket open on each interface for which one is wanted and whose
// device is there. Sockets are opened and closed on later passes of the loop, some per pass, so that setting
// up thousands of ports holds nobody up. One that cannot be opened is a warning, and is tried again every 10
// s.
#pragma once

#include <map>
#include <set>

#include "platform/kel/Clock.h"
#include "platform/linux/PacketSocket.h"
#include "platform/model/interface.h"

namespace Linux {

class PacketSockets {
 public:
  explicit PacketSockets(Kel::Ptr<Interface::EthDevPamManager> manager);
  ~PacketSockets();
  PacketSockets(PacketSockets const&) = delete;
  PacketSockets& operator=(PacketSockets const&) = delete;

 private:
  class ManagerReactor;
  class DesiredReactor;
  class DeviceReactor;
  class Pass;
  struct Open {
    int ifIndex = 0;
    Kel::Ptr<PacketSocket> socket;
  };

  void handleOptions();
  void look(Wire::IntfId const& intfId);
  void handlePass();
  void update(Wire::IntfId const& intfId);
  void open(Wire::IntfId const& intfId, int ifIndex);
  void close(Wire::IntfId const& intfId);

  Kel::Ptr<Interface::EthDevPamManager> manager_;
  std::map<Wire::IntfId, Open> open_;
  std::set<Wire::IntfId> waiting_;  // to be looked at on the next pass
  std::set<Wire::IntfId> failed_;   // could not be opened
  Kel::Ptr<ManagerReactor> managerReactor_;
  Kel::Ptr<DesiredReactor> desiredReactor_;
  Kel::Ptr<DeviceReactor> deviceReactor_;
  Kel::Ptr<Pass> pass_;
};

}  // namespace Linux
