// Finds the managers that other rooms make known as local entities of the activity manager, and serves them
// for as long as they are there.
#pragma once

#include <map>
#include <memory>

#include "platform/kel/ActivityManager.h"
#include "platform/linux/DeviceIndices.h"
#include "platform/linux/PacketSockets.h"

namespace Linux {

class LocalServices {
 public:
  explicit LocalServices(Kel::Ptr<Ports const> ports);
  ~LocalServices();
  LocalServices(LocalServices const&) = delete;
  LocalServices& operator=(LocalServices const&) = delete;

 private:
  class Reactor;

  void handleLocalEntity(Kel::Name const& name);

  Kel::Ptr<Ports const> ports_;
  std::map<Kel::Name, std::unique_ptr<PacketSockets>> packetSockets_;
  std::map<Kel::Name, std::unique_ptr<DeviceIndices>> deviceIndices_;
  Kel::Ptr<Reactor> reactor_;
};

}  // namespace Linux
