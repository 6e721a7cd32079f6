// The socket of IPv6 router discovery (RFC 4861): solicitations out, advertisements in, for all devices at
// once.
#pragma once

#include <functional>

#include "platform/kel/FileDescriptor.h"
#include "platform/linux/Descriptor.h"
#include "platform/linux/RouterAdvertisement.h"

namespace Linux {

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
  class Reader;

  void handleReadable();
  bool receive();

  Handler handler_;
  Descriptor socket_;
  Kel::Ptr<Kel::FileDescriptor> descriptor_ = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Ptr<Reader> reader_;
};

}  // namespace Linux
