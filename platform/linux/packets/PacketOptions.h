// The options of packet sockets (packet(7)). Each function throws std::system_error with the call that
// failed.
#pragma once

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "platform/model/values/Wire.h"

namespace Linux {

inline void check(int result, char const* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
}

template <typename T>
void setOption(int socket, int level, int option, T const& value, char const* call) {
  check(setsockopt(socket, level, option, &value, sizeof value), call);
}

inline void addMembership(int socket, int ifIndex, int type, Wire::EthAddr const& address, char const* call) {
  packet_mreq request{};
  request.mr_ifindex = ifIndex;
  request.mr_type = static_cast<unsigned short>(type);
  request.mr_alen = ETH_ALEN;
  std::ranges::copy(address.bytes, request.mr_address);
  setOption(socket, SOL_PACKET, PACKET_ADD_MEMBERSHIP, request, call);
}

}  // namespace Linux
