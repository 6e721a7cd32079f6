// Carries configuration to the kernel: not within the call that changed an entity, but on later passes of the
// loop, some ports per pass, so that setting up thousands of ports holds nobody up, and several changes of
// one port cost one visit.
#pragma once

#include <map>
#include <set>
#include <vector>

#include "platform/kel/Clock.h"
#include "platform/linux/DeviceSettings.h"
#include "platform/linux/Netlink.h"
#include "platform/linux/Ports.h"

namespace Linux {

// One aspect of a port's configuration.
class PortApplier {
 public:
  virtual ~PortApplier() = default;
  // Brings the port to what its entities say, whatever it is like now. Called again after every change of one
  // of the port's entities or of the port itself.
  virtual void apply(Wire::IntfId const& intfId, Port const& port) = 0;
};

class ApplyQueue {
 public:
  ApplyQueue(Kel::Ptr<Ports const> ports, Netlink const& netlink, DeviceSettings& settings);
  ~ApplyQueue();
  ApplyQueue(ApplyQueue const&) = delete;
  ApplyQueue& operator=(ApplyQueue const&) = delete;

  // Appliers run in the order in which they were added; each outlives the queue.
  void applierIs(PortApplier* applier) { appliers_.push_back(applier); }
  // The port has to be visited. Ports that appear or change are, without being asked for.
  void add(Wire::IntfId const& intfId);

 private:
  class PortsReactor;
  class Pass;

  void handlePort(Wire::IntfId const& intfId);
  void handlePass();

  Kel::Ptr<Ports const> ports_;
  Netlink const& netlink_;
  DeviceSettings& settings_;
  std::vector<PortApplier*> appliers_;
  std::set<Wire::IntfId> waiting_;
  std::map<Wire::IntfId, int> devices_;  // the kernel index behind each port
  Kel::Ptr<PortsReactor> portsReactor_;
  Kel::Ptr<Pass> pass_;
};

}  // namespace Linux
