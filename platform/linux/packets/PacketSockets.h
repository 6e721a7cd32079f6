// Packet sockets (packet(7)), which receive the frames that a port hears: one socket on one device, and the
// set of those that a manager wants.
#pragma once

#include <linux/filter.h>

#include <map>
#include <set>

#include "platform/kel/Clock.h"
#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Reactor.h"
#include "platform/linux/Descriptor.h"
#include "platform/model/interface.h"
#include "platform/model/wire.h"

struct tpacket_auxdata;

namespace Linux {

struct PacketSocketOptions {
  std::uint16_t protocol = 0;       // as for packet(7), in host byte order
  std::vector<sock_filter> filter;  // empty: all frames
  Wire::EthAddr listenAddr;         // multicast address to join; all multicast is asked for besides
};

// Hands over one frame per pass of the loop, so that a flood on one port holds up nobody: what the loop
// cannot keep up with overflows the socket's small buffer in the kernel. Frames that this system sent itself
// are left out. An outer VLAN tag, which the kernel strips, is back in its place; frames longer than 9,234
// bytes are cut off there.
class PacketSocket : public Wire::Pam {
 public:
  // Nothing unfiltered is ever received: the filter is in place before the socket is bound. Throws
  // std::system_error with the call that failed; ENODEV says that the device is gone.
  PacketSocket(Wire::IntfId intfId, int ifIndex, PacketSocketOptions const& options);
  ~PacketSocket() override;

  std::vector<std::uint8_t> rxPkt() override { return std::exchange(frame_, {}); }

  // No frames any more, whoever still holds the handle.
  void close();

 private:
  void handleReadable();

  Descriptor socket_;
  Kel::Ptr<Kel::FileDescriptor> descriptor_ = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Reactor reader_;
  std::vector<std::uint8_t> frame_;
};

// Puts the outer VLAN tag, if there was one, back where the kernel took it from; `aux` came with the frame.
void putTagBack(std::vector<std::uint8_t>& frame, tpacket_auxdata const& aux);

// Serves a packet-socket manager: keeps one socket open on each interface for which one is wanted and whose
// device is there. Sockets are opened and closed on later passes of the loop, some per pass, so that setting
// up thousands of ports holds nobody up. One that cannot be opened is a warning, and is tried again every 10
// s.
class PacketSockets {
 public:
  explicit PacketSockets(Kel::Ptr<Interface::EthDevPamManager> manager);
  ~PacketSockets();
  PacketSockets(PacketSockets const&) = delete;
  PacketSockets& operator=(PacketSockets const&) = delete;

 private:
  struct Open {
    int ifIndex = 0;
    Kel::Ptr<PacketSocket> socket;
  };

  void handleOptions();
  void look(Wire::IntfId const& intfId);
  void handlePass();
  void update(Wire::IntfId const& intfId);
  void open(Wire::IntfId const& intfId, int ifIndex);
  void close(Wire::IntfId const& intfId);

  Kel::Ptr<Interface::EthDevPamManager> manager_;
  std::map<Wire::IntfId, Open> open_;
  std::set<Wire::IntfId> waiting_;  // to be looked at on the next pass
  std::set<Wire::IntfId> failed_;   // could not be opened
  Kel::Reactor options_;
  Kel::Reactor desired_;
  Kel::Reactor devices_;
  Kel::Alarm pass_{[this] { handlePass(); }};
};

}  // namespace Linux
