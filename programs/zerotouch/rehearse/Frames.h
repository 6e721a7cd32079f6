// Ethernet frames around the messages: those that are sent, and what is in those that come.
#pragma once

#include <optional>

#include "platform/model/values/Wire.h"
#include "programs/zerotouch/rehearse/Options.h"

namespace Rehearsal {

// The link-local address that a port makes of its MAC address (RFC 4291, appendix A).
Wire::Ip6Addr linkLocal(Wire::EthAddr const& port);

// A message of a DHCP client, from its port and without an address (DHCPv4), or from its link-local one.
Bytes frame4(Wire::EthAddr const& port, BytesView message);
Bytes frame6(Wire::EthAddr const& port, BytesView message);
// Asks the routers to advertise themselves (RFC 4861, 4.1).
Bytes routerSolicitation(Wire::EthAddr const& port);

struct Packet {
  enum class Kind { dhcp4, dhcp6, routerAdvertisement, neighbourSolicitation } kind;
  std::string from;         // the sender's address
  Wire::Ip6Addr source;     // the same, of IPv6
  Wire::EthAddr neighbour;  // the sender on the link
  int hopLimit = 0;
  BytesView payload;  // the message of DHCP or ICMPv6, within the frame
};

// What a frame holds; nothing for what is none of these, or malformed.
std::optional<Packet> readFrame(BytesView frame);

// Tells a neighbour that asks for the link-local address of the port who has it (RFC 4861, 4.4): a server
// sends its answer there. Nothing when it asks for another address.
std::optional<Bytes> neighbourAdvertisement(Wire::EthAddr const& port, Packet const& solicitation);

}  // namespace Rehearsal
