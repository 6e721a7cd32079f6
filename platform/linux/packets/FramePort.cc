#include "platform/linux/packets/FramePort.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/filter.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/linux/packets/PacketOptions.h"

namespace Linux {

namespace {

constexpr std::size_t longestFrame = 9234;

// What of the frames is let through: no VLAN's; UDP to the ports of DHCP clients; of ICMPv6, advertisements
// of routers and solicitations of neighbours. Offsets are those of frames without IPv6 extension headers.
constexpr std::array filter = {
    sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<__u32>(SKF_AD_OFF + SKF_AD_VLAN_TAG_PRESENT)),
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 19),
    sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12),
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETH_P_IP, 0, 7),
    sock_filter BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 23),  // IPv4: the protocol
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 15),
    sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 20),  // fragments
    sock_filter BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x3fff, 13, 0),
    sock_filter BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 14),
    sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_IND, 16),
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 68, 9, 10),
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETH_P_IPV6, 0, 9),
    sock_filter BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 20),  // IPv6: the next header
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 2),
    sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 56),
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 546, 4, 5),
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_ICMPV6, 0, 4),
    sock_filter BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 54),
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 134, 1, 0),
    sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 135, 0, 1),
    sock_filter BPF_STMT(BPF_RET | BPF_K, longestFrame),
    sock_filter BPF_STMT(BPF_RET | BPF_K, 0),
};

// What the kernel says of the device, for an ioctl that asks for it.
ifreq ask(int socket, Kel::String const& device, unsigned long what, char const* call) {
  ifreq request{};
  if (device.empty() || device.size() >= sizeof request.ifr_name) errno = ENODEV;
  check(device.empty() || device.size() >= sizeof request.ifr_name ? -1 : 0, call);
  std::ranges::copy(device, static_cast<char*>(request.ifr_name));
  check(ioctl(socket, what, &request), call);
  return request;
}

// Protocol 0 receives nothing until bind(2) says what and where.
Descriptor opened() {
  Descriptor result(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  check(result.get(), "socket");
  sock_fprog const program{static_cast<unsigned short>(filter.size()),
                           const_cast<sock_filter*>(filter.data())};
  setOption(result.get(), SOL_SOCKET, SO_ATTACH_FILTER, program, "SO_ATTACH_FILTER");
  return result;
}

}  // namespace

FramePort::FramePort(Kel::String const& device, std::optional<Wire::EthAddr> const& address)
    : device_(device), socket_(opened()) {
  int const fd = socket_.get();
  index_ = ask(fd, device, SIOCGIFINDEX, "SIOCGIFINDEX").ifr_ifindex;
  auto const own = ask(fd, device, SIOCGIFHWADDR, "SIOCGIFHWADDR");
  if (own.ifr_hwaddr.sa_family != ARPHRD_ETHER)
    throw std::system_error(EOPNOTSUPP, std::generic_category(), "it is no Ethernet device");
  std::memcpy(address_.bytes.data(), &own.ifr_hwaddr.sa_data, address_.bytes.size());
  bool const another = address && *address != address_;
  if (another) address_ = *address;
  if (another) addMembership(fd, index_, PACKET_MR_PROMISC, {}, "PACKET_MR_PROMISC");
  addMembership(fd, index_, PACKET_MR_ALLMULTI, {}, "PACKET_MR_ALLMULTI");
  int const on = 1;
  setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);  // kernels before 4.20 do not have it
  sockaddr_ll where{};
  where.sll_family = AF_PACKET;
  where.sll_protocol = htons(ETH_P_ALL);
  where.sll_ifindex = index_;
  check(bind(fd, reinterpret_cast<sockaddr const*>(&where), sizeof where), "bind");
}

bool FramePort::hasLink() const {
  auto const flags =
      static_cast<unsigned>(ask(socket_.get(), device_, SIOCGIFFLAGS, "SIOCGIFFLAGS").ifr_flags);
  return (flags & IFF_UP) != 0 && (flags & IFF_RUNNING) != 0;
}

bool FramePort::hasAddress(bool six) const {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return false;
  bool found = false;
  for (ifaddrs const* entry = list; entry != nullptr && !found; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || device_ != entry->ifa_name ||
        entry->ifa_addr->sa_family != (six ? AF_INET6 : AF_INET))
      continue;
    sockaddr_in6 address{};
    if (six) std::memcpy(&address, entry->ifa_addr, sizeof address);
    found = !six || !IN6_IS_ADDR_LINKLOCAL(&address.sin6_addr);
  }
  freeifaddrs(list);
  return found;
}

void FramePort::send(std::span<std::uint8_t const> frame) const {
  auto const sent = ::send(socket_.get(), frame.data(), frame.size(), 0);
  // A full queue loses a frame as a network does; the question is asked again.
  if (sent < 0 && (errno == EAGAIN || errno == ENOBUFS)) return;
  check(static_cast<int>(sent), "send");
}

std::optional<std::vector<std::uint8_t>> FramePort::receive(std::chrono::milliseconds patience) const {
  pollfd ready{.fd = socket_.get(), .events = POLLIN, .revents = 0};
  if (poll(&ready, 1, static_cast<int>(std::max<std::int64_t>(patience.count(), 0))) <= 0)
    return std::nullopt;
  std::vector<std::uint8_t> frame(longestFrame);
  sockaddr_ll from{};
  socklen_t length = sizeof from;
  ssize_t const got =
      recvfrom(socket_.get(), frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
  if (got < 0 || from.sll_pkttype == PACKET_OUTGOING) return std::nullopt;
  frame.resize(static_cast<std::size_t>(got));
  return frame;
}

}  // namespace Linux
