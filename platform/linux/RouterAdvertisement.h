// Reads a router advertisement, as far as it matters here (RFC 4861, section 4.2).
#pragma once

#include <span>

#include "platform/model/values/Wire.h"

namespace Linux {

struct RouterAdvertisement {
  bool managed = false;
  bool other = false;
  Kel::Seconds lifetime = 0;  // of the router; 0: it is no router (any more)
};

// `message` is the ICMPv6 message, whose checksum the kernel has verified; `hopLimit` and `source` come from
// the IPv6 header around it. Returns "" and sets `out`, or why the message has to be ignored (section 6.1.2);
// then `out` is left as it was.
Kel::String parseRouterAdvertisement(std::span<std::uint8_t const> message, int hopLimit,
                                     Wire::Ip6Addr const& source, RouterAdvertisement& out);

}  // namespace Linux
