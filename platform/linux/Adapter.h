// The Linux adapter: keeps status entities true to the kernel and brings configuration entities to it.
//
// Works on the network namespace of the thread that makes it, and on the process's loop. It changes nothing
// but what configuration entities ask for, on the ports that its configuration selects. What it changes it
// puts back when the entity is withdrawn or the adapter ends; what an adapter left whose process died, the
// next one puts back at its start.
#pragma once

#include "platform/linux/AddressApplier.h"
#include "platform/linux/AddressWatcher.h"
#include "platform/linux/ApplyQueue.h"
#include "platform/linux/ConfigFollower.h"
#include "platform/linux/DeviceSettings.h"
#include "platform/linux/Entities.h"
#include "platform/linux/Inventory.h"
#include "platform/linux/Ip6Applier.h"
#include "platform/linux/LinkModeApplier.h"
#include "platform/linux/LinkUpApplier.h"
#include "platform/linux/LinkWatcher.h"
#include "platform/linux/LocalServices.h"
#include "platform/linux/MtuApplier.h"
#include "platform/linux/Netlink.h"
#include "platform/linux/Ports.h"
#include "platform/linux/RouterAdvertisements.h"

namespace Linux {

struct AdapterConfig {
  PortSelectionConfig ports;
  InventoryConfig inventory;
  Kel::String runDirectory = "/run/zerotouch";  // for the undo journal; made when missing
  int netlinkBuffer = 1 << 20;                  // of the notification socket, in bytes
};

class Adapter {
 public:
  // Returns with the status entities filled. Throws std::invalid_argument when the configuration cannot be
  // understood and std::runtime_error when the kernel refuses its sockets, both with a text for operators.
  Adapter(Entities const& entities, AdapterConfig const& config);
  ~Adapter();
  Adapter(Adapter const&) = delete;
  Adapter& operator=(Adapter const&) = delete;

  // The system is about to reload: what was changed stays as it is.
  void keepChanges() { keep_ = true; }

  Kel::Ptr<Ports> const& ports() const { return ports_; }
  Netlink const& netlink() const { return netlink_; }
  // For further kinds of settings.
  DeviceSettings& settings() { return settings_; }

 private:
  void undoLeftovers();

  Kel::Ptr<Ports> ports_ = Kel::makePtr<Ports>();
  PortSelection selection_;
  Netlink netlink_;
  DeviceSettings settings_;
  LinkUpApplier linkUpApplier_;
  Ip6Applier ip6Applier_;
  MtuApplier mtuApplier_;
  LinkModeApplier linkModeApplier_;
  AddressApplier addressApplier_;
  ApplyQueue queue_;
  ConfigFollower configFollower_;
  AddressWatcher addressWatcher_;
  RouterAdvertisements routerAdvertisements_;
  LocalServices localServices_;
  std::optional<LinkWatcher> linkWatcher_;
  std::optional<Inventory> inventory_;
  bool keep_ = false;
};

}  // namespace Linux
