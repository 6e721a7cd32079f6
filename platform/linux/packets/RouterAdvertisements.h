// IPv6 router discovery (RFC 4861): reading an advertisement, the socket for all devices, and the record of
// what each port hears.
#pragma once

#include <functional>
#include <map>
#include <span>

#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Reactor.h"
#include "platform/linux/Descriptor.h"
#include "platform/linux/links/Ports.h"
#include "platform/model/routeradvt.h"
#include "platform/model/values/Wire.h"

namespace Linux {

// What counts here of a router advertisement (section 4.2).
struct RouterAdvertisement {
  bool managed = false;
  bool other = false;
  Kel::Seconds lifetime = 0;  // as a default router; 0: it is none (any more)
};

// `message` is the ICMPv6 message, whose checksum the kernel has verified; `hopLimit` and `source` come from
// the IPv6 header around it. Returns "" and sets `out`, or why the message has to be ignored (section 6.1.2);
// then `out` is left as it was.
Kel::String parseRouterAdvertisement(std::span<std::uint8_t const> message, int hopLimit,
                                     Wire::Ip6Addr const& source, RouterAdvertisement& out);

// The socket of IPv6 router discovery (RFC 4861): solicitations out, advertisements in, for all devices at
// once.
class RouterDiscovery {
 public:
  // Told about each valid advertisement: the device that it came in on, the router that sent it, and what it
  // says.
  using Handler = std::function<void(int ifIndex, Wire::Ip6Addr const& router, RouterAdvertisement const&)>;

  // Opens the socket in the calling thread's network namespace. When the kernel refuses, that is a warning,
  // and nothing is ever received.
  explicit RouterDiscovery(Handler handler);
  ~RouterDiscovery();
  RouterDiscovery(RouterDiscovery const&) = delete;
  RouterDiscovery& operator=(RouterDiscovery const&) = delete;

  // Asks all routers on the link of a device to advertise themselves, from its link-local address `source`.
  // One that cannot be sent is a trace: more will follow.
  void solicit(int ifIndex, Wire::Ip6Addr const& source, Wire::EthAddr const& macAddr) const;

 private:
  void handleReadable();
  bool receive();

  Handler handler_;
  Descriptor socket_;
  Kel::Ptr<Kel::FileDescriptor> descriptor_ = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Reactor reader_;
};

// Keeps RouterAdvt::RaPacketStatus true: which ports hear a router, and what it says of DHCPv6.
//
// A port takes part while its link is up. Once it has a usable link-local address, routers are solicited: at
// most three times, 4 s apart, until one answers (RFC 4861, section 6.3.7). Its record is there while an
// advertisement is in force and the link-local address is usable, since DHCPv6 clients cannot run before. A
// flag is set when the last advertisement of any router in force sets it. The lifetime in an advertisement is
// that of a default router only (section 4.2): one that never was one is in force for as long as two of its
// advertisements may be apart. A default router that sends a lifetime of 0 takes its leave (section 6.2.5).
class RouterAdvertisements {
 public:
  RouterAdvertisements(Kel::Ptr<Ports const> ports, Kel::Ptr<RouterAdvt::RaPacketStatus> status);
  ~RouterAdvertisements();
  RouterAdvertisements(RouterAdvertisements const&) = delete;
  RouterAdvertisements& operator=(RouterAdvertisements const&) = delete;

 private:
  class Listener;

  void handlePort(Wire::IntfId const& intfId);
  void handleAdvertisement(int ifIndex, Wire::Ip6Addr const& router,
                           RouterAdvertisement const& advertisement);

  Kel::Ptr<Ports const> ports_;
  Kel::Ptr<RouterAdvt::RaPacketStatus> status_;
  RouterDiscovery discovery_;
  std::map<Wire::IntfId, Kel::Ptr<Listener>> listeners_;  // of the ports whose link is up
  Kel::Reactor portsReactor_;
};

}  // namespace Linux
