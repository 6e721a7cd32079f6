// Frames of a port; that the agent gets the right ones is shown in the lab.
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>

#include "platform/linux/packets/PacketSockets.h"
#include "tests/unit/linux/NetworkTest.h"

namespace Linux {
namespace {

TEST_F(NetworkTest, AFloodOfFramesHoldsUpNobody) {
  cable("1");
  ip("link set eth1 up", "link set far1 up");
  expectSoon([] { return output("ip -br link show far1 | grep -o LOWER_UP"); }, "LOWER_UP\n");
  PacketSocketOptions const all{.protocol = ETH_P_ALL, .filter = {}, .listenAddr = {}};
  auto const frames = Kel::makePtr<PacketSocket>(port1, static_cast<int>(if_nametoindex("eth1")), all);
  Descriptor const sender(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
  sockaddr_ll to{};
  to.sll_family = AF_PACKET;
  to.sll_ifindex = static_cast<int>(if_nametoindex("far1"));
  std::array<std::uint8_t, 60> const frame{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};
  for (int i = 0; i < 5000; ++i) {  // more than the socket can hold
    sendto(sender.get(), frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
  }
  // Each pass of the loop hands over one frame at most, so that what else is due has its turn.
  std::uint64_t seen = 0, most = 0;
  EXPECT_TRUE(Kel::Loop::instance().runUntil(
      [&] {
        most = std::max(most, frames->readableCount() - std::exchange(seen, frames->readableCount()));
        return seen >= 20;
      },
      patience));
  EXPECT_EQ(most, 1U);
}

}  // namespace
}  // namespace Linux
