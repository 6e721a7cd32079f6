// One packet socket (packet(7)) on one device.
#pragma once

#include <linux/filter.h>

#include "platform/kel/FileDescriptor.h"
#include "platform/linux/Descriptor.h"
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
  class Reader;

  void handleReadable();

  Descriptor socket_;
  Kel::Ptr<Kel::FileDescriptor> descriptor_ = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Ptr<Reader> reader_;
  std::vector<std::uint8_t> frame_;
};

// Puts the outer VLAN tag, if there was one, back where the kernel took it from; `aux` came with the frame.
void putTagBack(std::vector<std::uint8_t>& frame, tpacket_auxdata const& aux);

}  // namespace Linux
