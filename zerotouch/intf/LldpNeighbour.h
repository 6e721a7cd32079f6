// What an LLDP frame (IEEE 802.1AB) tells of the neighbour that has sent it.
#pragma once

#include <cstdint>
#include <span>

#include "platform/kel/Types.h"

namespace ZeroTouch {

// In printable characters; "" for what the frame does not tell.
struct LldpNeighbour {
  Kel::String system;  // its name
  Kel::String port;    // what it calls the port; an address is written with colons
};

// `message` begins behind the EtherType. Anything may stand there: what makes no sense ends the reading.
LldpNeighbour neighbourOf(std::span<std::uint8_t const> message);

}  // namespace ZeroTouch
