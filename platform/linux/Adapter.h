// The Linux adapter: keeps status entities true to the kernel and brings configuration entities to it.
//
// Works on the network namespace of the thread that makes it, and on the process's loop. It changes nothing
// but what configuration entities ask for: on the ports that its configuration selects, and of the system the
// static routes, the host name, resolv.conf and the log servers. What it changes it puts back when the entity
// is withdrawn or the adapter ends; what an adapter left whose process died, the next one puts back at its
// start. Once the system is to reload, nothing is put back any more at the end.
#pragma once

#include "platform/linux/Entities.h"
#include "platform/linux/LocalServices.h"
#include "platform/linux/links/Netlink.h"
#include "platform/linux/links/Ports.h"
#include "platform/linux/links/Watchers.h"
#include "platform/linux/packets/RouterAdvertisements.h"
#include "platform/linux/routes/RouteApplier.h"
#include "platform/linux/settings/DeviceSettings.h"
#include "platform/linux/settings/PortAppliers.h"
#include "platform/linux/system/Commands.h"
#include "platform/linux/system/Inventory.h"
#include "platform/linux/system/LogHostApplier.h"
#include "platform/linux/system/NetConfigAppliers.h"

namespace Linux {

struct AdapterConfig {
  PortSelectionConfig ports;
  InventoryConfig inventory;
  Kel::String runDirectory = "/run/zerotouch";  // for what is remembered of the system; made when missing
  int netlinkBuffer = 1 << 20;                  // of the notification socket, in bytes
  SystemConfig system;
  bool takeOver = false;  // what an earlier one left stays: the system is about to reload
};

class Adapter {
 public:
  // Returns with the status entities filled. Throws std::invalid_argument when the configuration cannot be
  // understood and std::runtime_error when the kernel refuses its sockets, both with a text for operators.
  Adapter(Entities const& entities, AdapterConfig const& config);
  // May run the loop for some seconds, until the log service has forgotten its servers.
  ~Adapter();
  Adapter(Adapter const&) = delete;
  Adapter& operator=(Adapter const&) = delete;

  Kel::Ptr<Ports> const& ports() const { return ports_; }
  Netlink const& netlink() const { return netlink_; }
  // For further kinds of settings.
  DeviceSettings& settings() { return settings_; }

 private:
  void undoLeftovers();
  void undo();

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
  RouteApplier routeApplier_;
  HostNameApplier hostNameApplier_;
  ResolvConfApplier resolvConfApplier_;
  LogHostApplier logHostApplier_;
  bool keep_ = false;
  ReloadApplier reloadApplier_;
};

}  // namespace Linux
