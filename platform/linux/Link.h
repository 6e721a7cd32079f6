// What rtnetlink(7) tells about a network device and about an address, as plain values.
#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <map>
#include <optional>

#include "platform/model/values/Wire.h"

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
  int master = 0;          // index of the bridge, bond or VRF that it is in; 0: none
  Kel::String masterKind;  // "bridge", "bond", "vrf", ...; empty when the master has no kind

  bool operator==(Link const&) const = default;
};

// The addresses of one device, each with its IFA_F_* flags.
using Addresses = std::map<Wire::IpGenAddrWithMask, std::uint32_t>;

// Whether it is one of 169.254.0.0/16 or fe80::/10.
bool isLinkLocal(Wire::IpGenAddrWithMask const& address);

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

}  // namespace Linux
