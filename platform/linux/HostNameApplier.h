// Gives the running system the configured host name, and says which one it has.
//
// Only the kernel's name is set. /etc/hostname is left alone: it is what the system is to be called at its
// next boot, and that the configuration which provisioning fetches decides, not a DHCP server.
#pragma once

#include "platform/linux/Entities.h"
#include "platform/linux/Names.h"
#include "platform/linux/Original.h"
#include "platform/linux/Timer.h"

namespace Linux {

class HostNameApplier {
 public:
  // The original name is kept in the file hostname.original of `runDirectory`.
  HostNameApplier(Entities const& entities, Kel::String const& runDirectory);
  ~HostNameApplier();
  HostNameApplier(HostNameApplier const&) = delete;
  HostNameApplier& operator=(HostNameApplier const&) = delete;

  // Puts the original name back; false when it was never changed.
  bool undo();
  // It stays as it is for good.
  void keep();

 private:
  class Reactor;

  void apply();
  bool set(Kel::String const& name);

  Kel::Ptr<System::NetConfig const> config_;
  Kel::Ptr<System::NetStatus> status_;
  Original original_;
  Dropped dropped_;
  Timer pass_{[this] { apply(); }};
  Kel::Ptr<Reactor> reactor_;
};

}  // namespace Linux
