// The kernel's network devices and their addresses: what rtnetlink(7) tells of each, as plain values, and
// Netlink, which keeps them current and sends requests.
#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "platform/kel/Clock.h"
#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Reactor.h"
#include "platform/model/values/Wire.h"

struct nl_msg;
struct nl_sock;
struct nlmsghdr;

namespace Linux {

struct Link {
  int ifIndex = 0;
  Kel::String name;
  Kel::String kind;            // "veth", "bond", "vlan", ...; empty: plain hardware
  std::uint16_t type = 0;      // ARPHRD_*
  std::uint32_t flags = 0;     // IFF_*
  std::uint8_t operState = 0;  // IF_OPER_*
  bool carrier = false;
  std::uint32_t mtu = 0;
  Wire::EthAddr macAddr;
  int master = 0;  // index of the bridge, bond or VRF that it is in; 0: none

  bool operator==(Link const&) const = default;
};

// The addresses of one device, each with its IFA_F_* flags.
using Addresses = std::map<Wire::IpGenAddrWithMask, std::uint32_t>;

struct LinkAddress {
  int ifIndex = 0;
  Wire::IpGenAddrWithMask address;
  std::uint32_t flags = 0;
};

// Reads an RTM_NEWLINK or RTM_DELLINK message. Nothing when it is malformed, or when it is not about the
// device as such: a bridge sends messages of the same type about its ports, also when a port leaves it.
std::optional<Link> linkFromMessage(nlmsghdr* message);

// Reads an RTM_NEWADDR or RTM_DELADDR message. Nothing when it is malformed or of another family.
std::optional<LinkAddress> addressFromMessage(nlmsghdr* message);

// The kernel's devices and addresses, kept current: one dump at the start, then the kernel's own
// notifications. When more of them come than the socket can hold (ENOBUFS), what was lost is found by another
// dump.
class Netlink {
 public:
  // Told about one device at a time; what it is like now is asked of the Netlink. In a dump, the devices that
  // are gone come first. Listeners are called in the order of their registration.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void onLink(int /*ifIndex*/) {}
    virtual void onAddresses(int /*ifIndex*/) {}
  };

  // Opens its sockets in the calling thread's network namespace and reads everything there is. Throws
  // std::runtime_error with the reason when the kernel refuses. `receiveBuffer` is in bytes.
  explicit Netlink(int receiveBuffer = 1 << 20);
  ~Netlink();
  Netlink(Netlink const&) = delete;
  Netlink& operator=(Netlink const&) = delete;

  std::map<int, Link> const& links() const { return links_; }
  // nullptr when there is no such device.
  Link const* link(int ifIndex) const;
  Addresses const& addresses(int ifIndex) const;

  // The caller keeps the listener alive until listenerDel.
  void listenerIs(Listener* listener) { listeners_.push_back(listener); }
  void listenerDel(Listener* listener);

  // Asks the kernel for the addresses of one device as they are now, which includes changes whose
  // notification has not been read yet. Nothing when the device is gone.
  std::optional<Addresses> readAddresses(int ifIndex);
  // Reads everything anew and announces the differences.
  void resync();

  // How often everything was read anew, the first time included.
  unsigned dumps() const { return dumps_; }

  // Sends a request that changes something, and frees it. Returns 0 or the kernel's error number.
  int change(nl_msg* message);
  // Sends a request for a dump, frees it, and hands over each message of the answer; false when that may not
  // be all there is.
  bool read(nl_msg* message, std::function<void(nlmsghdr*)> reader);

  // For requests: waits for the kernel's answer, which rtnetlink gives before the request returns.
  nl_sock* requests() const { return requests_; }

 private:
  struct Changed {
    bool address;
    int ifIndex;
  };

  static int onMessage(nl_msg* message, void* self);
  void openEvents(int receiveBuffer);
  void readEvents();
  void take(nl_msg* message);
  void takeLink(nlmsghdr* message);
  void takeAddress(nlmsghdr* message);
  bool dump();
  int dumpLinks();
  int dumpAddresses(int ifIndex);
  int request(nl_msg* message);
  void announce();

  nl_sock* events_ = nullptr;
  nl_sock* requests_ = nullptr;
  Kel::Ptr<Kel::FileDescriptor> eventsDescriptor_;
  Kel::Reactor readable_;
  Kel::Alarm resync_{[this] { resync(); }};

  std::map<int, Link> links_;
  std::map<int, Addresses> addresses_;
  std::vector<Changed> changed_;
  std::vector<Listener*> listeners_;
  std::function<void(nlmsghdr*)> reader_;           // takes the answer instead, during read()
  std::map<int, Addresses>* answer_ = &addresses_;  // where addresses go: aside during readAddresses
  unsigned dumps_ = 0;
};

}  // namespace Linux
