// Serves an interface-to-device manager: keeps its directory of kernel indices true to the ports that are
// present.
#pragma once

#include "platform/linux/Ports.h"
#include "platform/model/interface.h"

namespace Linux {

class DeviceIndices {
 public:
  DeviceIndices(Kel::Ptr<Interface::NetNsIntfStatusManagerRoot> manager, Kel::Ptr<Ports const> ports);
  ~DeviceIndices();
  DeviceIndices(DeviceIndices const&) = delete;
  DeviceIndices& operator=(DeviceIndices const&) = delete;

 private:
  class ManagerReactor;
  class PortsReactor;

  void handleDirectory();
  void handlePort(Wire::IntfId const& intfId);

  Kel::Ptr<Interface::NetNsIntfStatusManagerRoot> manager_;
  Kel::Ptr<Ports const> ports_;
  Kel::Ptr<Interface::DeviceIntfStatusDir> directory_;
  Kel::Ptr<ManagerReactor> managerReactor_;
  Kel::Ptr<PortsReactor> portsReactor_;
};

}  // namespace Linux
