#include "platform/linux/packets/RouterAdvertisements.h"

#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/kel/Trace.h"
#include "platform/linux/Warnings.h"

namespace Linux {

namespace {

Kel::TraceFacility trace("RouterDiscovery");

constexpr int messagesPerPass = 16;  // a flood of them holds up nobody
constexpr std::size_t maxMessage = 9216;
constexpr int hopLimit = 255;
constexpr std::uint8_t sourceLinkLayerAddress = 1;  // option type

in6_addr toKernel(Wire::Ip6Addr const& address) {
  in6_addr result{};
  std::ranges::copy(address.bytes, result.s6_addr);
  return result;
}

template <typename T>
void setOption(int socket, int level, int option, T const& value) {
  if (setsockopt(socket, level, option, &value, sizeof value) < 0) {
    throw std::system_error(errno, std::generic_category(), "setsockopt");
  }
}

Descriptor openSocket() {
  Descriptor opened(socket(AF_INET6, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMPV6));
  int const fd = opened.get();
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "socket");
  icmp6_filter filter{};
  ICMP6_FILTER_SETBLOCKALL(&filter);
  ICMP6_FILTER_SETPASS(ND_ROUTER_ADVERT, &filter);
  setOption(fd, IPPROTO_ICMPV6, ICMP6_FILTER, filter);
  setOption(fd, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1);
  setOption(fd, IPPROTO_IPV6, IPV6_RECVHOPLIMIT, 1);
  setOption(fd, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, hopLimit);
  return opened;
}

// What recvmsg(2) reports besides the message.
struct Arrival {
  int ifIndex = 0;
  int hopLimit = -1;
};

Arrival arrivalOf(msghdr& message) {
  Arrival result;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != IPPROTO_IPV6) continue;
    if (header->cmsg_type == IPV6_PKTINFO) {
      in6_pktinfo info{};
      std::memcpy(&info, CMSG_DATA(header), sizeof info);
      result.ifIndex = static_cast<int>(info.ipi6_ifindex);
    } else if (header->cmsg_type == IPV6_HOPLIMIT) {
      std::memcpy(&result.hopLimit, CMSG_DATA(header), sizeof result.hopLimit);
    }
  }
  return result;
}

}  // namespace

RouterDiscovery::RouterDiscovery(Handler handler) : handler_(std::move(handler)) {
  try {
    socket_ = openSocket();
  } catch (std::system_error const& error) {
    routerAdvertisementsFailed.log(error.what());
    return;
  }
  reader_ = Kel::Reactor(descriptor_, &Kel::FileDescriptor::NotifieeConst::onReadableCount,
                         [this] { handleReadable(); });
  descriptor_->descriptorIs(socket_.get());
  descriptor_->lateIs(true);
  descriptor_->notifyOnReadableIs(true);
}

RouterDiscovery::~RouterDiscovery() { descriptor_->descriptorIs(-1); }

void RouterDiscovery::handleReadable() {
  for (int i = 0; i < messagesPerPass && receive(); ++i) {
  }
}

// Returns whether there was a message, good or bad.
bool RouterDiscovery::receive() {
  std::array<std::uint8_t, maxMessage> buffer;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in6_pktinfo)) + CMSG_SPACE(sizeof(int))> control;
  sockaddr_in6 from{};
  iovec data{buffer.data(), buffer.size()};
  msghdr message{};
  message.msg_name = &from;
  message.msg_namelen = sizeof from;
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  ssize_t const length = recvmsg(socket_.get(), &message, 0);
  if (length < 0) return false;

  Wire::Ip6Addr source;
  std::ranges::copy(from.sin6_addr.s6_addr, source.bytes.begin());
  Arrival const arrival = arrivalOf(message);
  RouterAdvertisement advertisement;
  Kel::String const reason = (message.msg_flags & MSG_TRUNC) != 0
                                 ? "message too long"
                                 : parseRouterAdvertisement({buffer.data(), static_cast<std::size_t>(length)},
                                                            arrival.hopLimit, source, advertisement);
  if (reason.empty()) {
    handler_(arrival.ifIndex, source, advertisement);
  } else {
    KEL_TRACE(trace, 3, "advertisement on device " << arrival.ifIndex << " ignored: " << reason);
  }
  return true;
}

void RouterDiscovery::solicit(int ifIndex, Wire::Ip6Addr const& source, Wire::EthAddr const& macAddr) const {
  if (!socket_) return;
  // The kernel fills in the checksum.
  std::array<std::uint8_t, 16> packet{ND_ROUTER_SOLICIT};
  packet[8] = sourceLinkLayerAddress;
  packet[9] = 1;  // in units of 8 bytes
  std::ranges::copy(macAddr.bytes, packet.begin() + 10);

  sockaddr_in6 allRouters{};
  allRouters.sin6_family = AF_INET6;
  allRouters.sin6_addr = {{{0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}}};
  allRouters.sin6_scope_id = static_cast<std::uint32_t>(ifIndex);

  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in6_pktinfo))> control{};
  iovec data{packet.data(), packet.size()};
  msghdr message{};
  message.msg_name = &allRouters;
  message.msg_namelen = sizeof allRouters;
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = IPPROTO_IPV6;
  header->cmsg_type = IPV6_PKTINFO;
  header->cmsg_len = CMSG_LEN(sizeof(in6_pktinfo));
  in6_pktinfo const info{toKernel(source), static_cast<unsigned>(ifIndex)};
  std::memcpy(CMSG_DATA(header), &info, sizeof info);
  if (sendmsg(socket_.get(), &message, 0) < 0) {
    KEL_TRACE(trace, 3, "solicitation on device " << ifIndex << ": " << std::strerror(errno));
  }
}

}  // namespace Linux
