// The ports: which network devices the adapter may touch and what people call them (PortSelection), and which
// of them are present now (Ports).
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "platform/kel/EntityType.h"
#include "platform/model/values/Wire.h"

namespace re2 {
class RE2;
}

namespace Linux {

// What the configuration says; the defaults take every device that is backed by hardware under its own name.
struct PortSelectionConfig {
  struct NameRule {
    Kel::String device;  // regular expression (re2-syntax) for a whole device name, as "eth(.*)"
    Kel::String shown;   // what it is called, with \1 to \9 for the groups and & for the device's name

    bool operator==(NameRule const&) const = default;
  };

  std::vector<Kel::String>
      devices;                  // glob(7) patterns; empty: the devices that have /sys/class/net/NAME/device
  std::vector<NameRule> names;  // the first that fits counts; none fits: the device's own name
  Kel::String sysClassNet = "/sys/class/net";

  bool operator==(PortSelectionConfig const&) const = default;
};

// Which network devices the adapter may touch, and the names that people see for them.
class PortSelection {
 public:
  // Throws std::invalid_argument, with a text that names the pattern, when a regular expression cannot be
  // understood or would take too much memory.
  explicit PortSelection(PortSelectionConfig config);

  // By name alone; what kind of device it is, the link watcher judges.
  bool selects(Kel::String const& deviceName) const;
  // The id, which is the name shown. Empty when the rules make a name that is empty or longer than 64 bytes.
  Wire::IntfId intfId(Kel::String const& deviceName) const;

 private:
  PortSelectionConfig config_;
  std::vector<std::shared_ptr<re2::RE2 const>> patterns_;  // one per config_.names
};

// The selected devices that are present now. The link watcher fills it; whoever needs a socket, an ioctl or a
// kernel index per port follows it, and so needs no netlink of its own.
enum class PortKind { physical, lag, vlan };

struct Port {
  Kel::String deviceName;
  int ifIndex = 0;  // 0: no such port
  PortKind kind = PortKind::physical;
  Wire::EthAddr macAddr;
  bool linkUp = false;  // administratively up, and has a carrier
  // Its IPv6 link-local address; :: while there is none, or none that is usable (it is tentative or failed).
  Wire::Ip6Addr linkLocal;

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
  // What messages call a device: "port Ethernet1 (device eth1)", or "device eth9" when it is none of ours;
  // empty when the kernel has no such device.
  Kel::String describe(int ifIndex) const;

  // For the link watcher, and for tests.
  void portIs(Wire::IntfId const& intfId, Port const& port);
  void portDel(Wire::IntfId const& intfId);

 private:
  static constexpr unsigned level = 1;

  Kel::Collection<Wire::IntfId, Port> port_;
  std::map<int, Wire::IntfId> byIndex_;
};

}  // namespace Linux
