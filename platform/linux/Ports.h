// The selected devices that are present now. The link watcher fills it; whoever needs a socket, an ioctl or a
// kernel index per port follows it, and so needs no netlink of its own.
#pragma once

#include <map>

#include "platform/kel/EntityType.h"
#include "platform/linux/PortSelection.h"
#include "platform/model/values/Wire.h"

namespace Linux {

enum class PortKind { physical, lag, vlan };

struct Port {
  Kel::String deviceName;
  int ifIndex = 0;  // 0: no such port
  PortKind kind = PortKind::physical;
  Wire::EthAddr macAddr;
  bool linkUp = false;  // administratively up, and has a carrier
  Wire::Ip6Addr
      linkLocal;  // its IPv6 link-local address; :: while there is none that is usable (tentative, failed)

  explicit operator bool() const { return ifIndex != 0; }
  bool operator==(Port const&) const = default;
};

class Ports : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeBase {
   public:
    explicit NotifieeConst(Kel::Ptr<Ports const> const& notifier) : NotifieeBase(notifier, 1) {}
    Ports const& notifier() const { return static_cast<Ports const&>(*notifierEntity()); }
    // The port appeared, went away or changed in any field; port(id) tells which. By now the status
    // directories have the port's record, or have it no more. Only the kernel index is fixed: another device
    // under the same id (one that was deleted and made again) is announced as a removal first. A device that
    // is renamed goes and comes under another id with the same index, unless the naming rules give it the
    // same id again: then its deviceName changes.
    virtual void onPort(Wire::IntfId const&) {}
  };

  Kel::Collection<Wire::IntfId, Port> const& port() const { return port_; }
  // A default one, which is false, when there is none.
  Port const& port(Wire::IntfId const& intfId) const { return port_.get(intfId); }
  // The port behind a kernel index; empty when it is none of ours.
  Wire::IntfId intfId(int ifIndex) const;

  // For the link watcher, and for tests.
  void portIs(Wire::IntfId const& intfId, Port const& port);
  void portDel(Wire::IntfId const& intfId);

 private:
  static constexpr unsigned level = 1;

  Kel::Collection<Wire::IntfId, Port> port_;
  std::map<int, Wire::IntfId> byIndex_;
};

}  // namespace Linux
