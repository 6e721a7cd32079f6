// The services for other rooms of this process: their managers of packet sockets and of device indices, which
// they make known as local entities of the activity manager.
#pragma once

#include <map>
#include <memory>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/linux/links/Ports.h"
#include "platform/linux/packets/PacketSockets.h"
#include "platform/model/interface.h"

namespace Linux {

// Serves an interface-to-device manager: keeps its directory of kernel indices true to the ports that are
// present.
class DeviceIndices {
 public:
  DeviceIndices(Kel::Ptr<Interface::NetNsIntfStatusManagerRoot> manager, Kel::Ptr<Ports const> ports);
  ~DeviceIndices();
  DeviceIndices(DeviceIndices const&) = delete;
  DeviceIndices& operator=(DeviceIndices const&) = delete;

 private:
  void handleDirectory();
  void handlePort(Wire::IntfId const& intfId);

  Kel::Ptr<Interface::NetNsIntfStatusManagerRoot> manager_;
  Kel::Ptr<Ports const> ports_;
  Kel::Ptr<Interface::DeviceIntfStatusDir> directory_;
  Kel::Reactor managerReactor_;
  Kel::Reactor portsReactor_;
};

// Finds the managers that other rooms make known as local entities of the activity manager, and serves them
// for as long as they are there.
class LocalServices {
 public:
  explicit LocalServices(Kel::Ptr<Ports const> ports);
  LocalServices(LocalServices const&) = delete;
  LocalServices& operator=(LocalServices const&) = delete;

 private:
  void handleLocalEntity(Kel::Name const& name);

  Kel::Ptr<Ports const> ports_;
  std::map<Kel::Name, std::unique_ptr<PacketSockets>> packetSockets_;
  std::map<Kel::Name, std::unique_ptr<DeviceIndices>> deviceIndices_;
  Kel::Reactor reactor_;
};

}  // namespace Linux
