#include "platform/linux/packets/PacketSockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/kel/Trace.h"
#include "platform/linux/Warnings.h"
#include "platform/linux/packets/PacketOptions.h"

namespace Linux {

namespace {

Kel::TraceFacility trace("PacketSocket");

constexpr std::size_t maxFrame = 9216 + ETH_HLEN + 4;
constexpr int receiveBuffer = 64 * 1024;
constexpr std::size_t addressesLength = 2 * ETH_ALEN;  // what stands before a VLAN tag

// Gives the descriptor a number above what select(2) can handle, since there is one for each port and code
// that uses select needs the low numbers. It keeps its number when the limit on descriptors is too low.
Descriptor moveUp(Descriptor low) {
  Descriptor high(fcntl(low.get(), F_DUPFD_CLOEXEC, FD_SETSIZE));
  return high ? std::move(high) : std::move(low);
}

// Protocol 0 receives nothing until bind(2) says what and where.
Descriptor openSocket(int ifIndex, PacketSocketOptions const& options) {
  Descriptor opened(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  check(opened.get(), "socket");
  opened = moveUp(std::move(opened));
  int const fd = opened.get();
  if (!options.filter.empty()) {
    auto filter = options.filter;
    sock_fprog const program{static_cast<unsigned short>(filter.size()), filter.data()};
    setOption(fd, SOL_SOCKET, SO_ATTACH_FILTER, program, "SO_ATTACH_FILTER");
  }
  setOption(fd, SOL_SOCKET, SO_RCVBUF, receiveBuffer, "SO_RCVBUF");
  setOption(fd, SOL_PACKET, PACKET_AUXDATA, 1, "PACKET_AUXDATA");
  // Keeps frames that this system sends from reaching the filter. Kernels before 4.20 do not have the option.
  int const on = 1;
  setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
  addMembership(fd, ifIndex, PACKET_MR_MULTICAST, options.listenAddr, "PACKET_MR_MULTICAST");
  addMembership(fd, ifIndex, PACKET_MR_ALLMULTI, {}, "PACKET_MR_ALLMULTI");

  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(options.protocol);
  address.sll_ifindex = ifIndex;
  check(bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address), "bind");
  return opened;
}

// Returns an empty frame when there is none, or when this system sent it.
std::vector<std::uint8_t> receive(int socket, Wire::IntfId const& intfId) {
  std::array<std::uint8_t, maxFrame> buffer;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> control;
  sockaddr_ll from{};
  iovec data{buffer.data(), buffer.size()};
  msghdr message{};
  message.msg_name = &from;
  message.msg_namelen = sizeof from;
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  ssize_t const length = recvmsg(socket, &message, 0);
  if (length < 0) {
    // ENETDOWN is how the socket tells, once, that the device went down or away. It goes on when the device
    // is up again.
    if (errno != EAGAIN && errno != EINTR)
      KEL_TRACE(trace, 3, intfId.stringValue() << ": " << std::strerror(errno));
    return {};
  }
  if (from.sll_pkttype == PACKET_OUTGOING) return {};
  std::vector<std::uint8_t> frame(buffer.data(), buffer.data() + length);
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_PACKET || header->cmsg_type != PACKET_AUXDATA) continue;
    tpacket_auxdata aux{};
    std::memcpy(&aux, CMSG_DATA(header), sizeof aux);
    putTagBack(frame, aux);
  }
  return frame;
}

}  // namespace

void putTagBack(std::vector<std::uint8_t>& frame, tpacket_auxdata const& aux) {
  if ((aux.tp_status & TP_STATUS_VLAN_VALID) == 0 || frame.size() < addressesLength) return;
  std::uint16_t const tpid =
      (aux.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? aux.tp_vlan_tpid : ETH_P_8021Q;
  std::array<std::uint8_t, 4> const tag{static_cast<std::uint8_t>(tpid >> 8), static_cast<std::uint8_t>(tpid),
                                        static_cast<std::uint8_t>(aux.tp_vlan_tci >> 8),
                                        static_cast<std::uint8_t>(aux.tp_vlan_tci)};
  frame.insert(frame.begin() + addressesLength, tag.begin(), tag.end());
}

PacketSocket::PacketSocket(Wire::IntfId intfId, int ifIndex, PacketSocketOptions const& options)
    : Pam(std::move(intfId)), socket_(openSocket(ifIndex, options)) {
  reader_ = Kel::Reactor(descriptor_, &Kel::FileDescriptor::NotifieeConst::onReadableCount,
                         [this] { handleReadable(); });
  descriptor_->descriptorIs(socket_.get());
  descriptor_->lateIs(true);  // a flood of frames holds nobody up
  descriptor_->notifyOnReadableIs(true);
}

PacketSocket::~PacketSocket() { close(); }

void PacketSocket::close() {
  reader_ = {};
  descriptor_->descriptorIs(-1);
  socket_ = Descriptor();
  frame_.clear();
}

void PacketSocket::handleReadable() {
  Kel::Ptr<PacketSocket> const hold(this);
  frame_ = receive(socket_.get(), intfId());
  if (frame_.empty()) return;
  readableCountIs(readableCount() + 1);
  frame_.clear();
}

namespace {

constexpr int portsPerPass = 16;
constexpr Kel::Seconds retryInterval = 10;

PacketSocketOptions optionsOf(Interface::EthDevPamManager const& manager) {
  PacketSocketOptions options{manager.ethProtocol(), {}, manager.listenAddr()};
  for (auto const& [number, instruction] : manager.filterProgram()) {
    options.filter.push_back({instruction.code, instruction.jt, instruction.jf, instruction.k});
  }
  return options;
}

}  // namespace

PacketSockets::PacketSockets(Kel::Ptr<Interface::EthDevPamManager> manager) : manager_(std::move(manager)) {
  using Manager = Interface::EthDevPamManager::NotifieeConst;
  options_ = Kel::Reactor(
      manager_,
      {&Manager::onEthProtocol, &Manager::onFilterProgram, &Manager::onListenAddr, &Manager::onEnabled},
      [this] { handleOptions(); });
  desired_ =
      Kel::Reactor(manager_->pamDesiredIntfDir(), &Interface::PamDesiredIntfDir::NotifieeConst::onIntfDesired,
                   this, &PacketSockets::look);
  devices_ =
      Kel::Reactor(manager_->deviceIntfStatusDir(),
                   &Interface::DeviceIntfStatusDir::NotifieeConst::onDeviceIndex, this, &PacketSockets::look);
  handleOptions();
}

PacketSockets::~PacketSockets() {
  while (!open_.empty()) close(open_.begin()->first);
}

// Closes all sockets, since they were opened with other options.
void PacketSockets::handleOptions() {
  while (!open_.empty()) close(open_.begin()->first);
  if (!manager_->enabled()) return;
  for (Wire::IntfId const& intfId : manager_->pamDesiredIntfDir()->intfDesired().keys()) look(intfId);
}

void PacketSockets::look(Wire::IntfId const& intfId) {
  waiting_.insert(intfId);
  pass_.at(Kel::now());
}

void PacketSockets::handlePass() {
  if (waiting_.empty()) waiting_.swap(failed_);
  for (int i = 0; i < portsPerPass && !waiting_.empty(); ++i)
    update(waiting_.extract(waiting_.begin()).value());
  if (!waiting_.empty()) {
    pass_.at(Kel::now());
  } else if (!failed_.empty()) {
    pass_.at(Kel::now() + retryInterval);
  }
}

void PacketSockets::update(Wire::IntfId const& intfId) {
  bool const wanted = manager_->enabled() && manager_->pamDesiredIntfDir()->intfDesired().get(intfId);
  int const ifIndex = static_cast<int>(manager_->deviceIntfStatusDir()->deviceIndex().get(intfId));
  auto const found = open_.find(intfId);
  if (found != open_.end() && wanted && found->second.ifIndex == ifIndex) return;
  close(intfId);
  if (wanted && ifIndex != 0) {
    open(intfId, ifIndex);
  } else {
    failed_.erase(intfId);
  }
}

void PacketSockets::open(Wire::IntfId const& intfId, int ifIndex) {
  try {
    auto const socket = Kel::makePtr<PacketSocket>(intfId, ifIndex, optionsOf(*manager_));
    open_[intfId] = {ifIndex, socket};
    failed_.erase(intfId);
    manager_->ethDevPamCollection()->intfPamIs(socket);
  } catch (std::system_error const& error) {
    // Of a device that is gone, the link watcher will tell; it is no reason to complain.
    bool const gone = error.code().value() == ENODEV;
    if (failed_.insert(intfId).second && !gone) packetSocketFailed.log(intfId.stringValue(), error.what());
  }
}

void PacketSockets::close(Wire::IntfId const& intfId) {
  auto const closed = open_.extract(intfId);
  if (closed.empty()) return;
  closed.mapped().socket->close();
  manager_->ethDevPamCollection()->intfPamDel(closed.key());
}

}  // namespace Linux
