// What becomes of router advertisements. The fuzz target shows what counts as one.
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "platform/kel/testing/SimulatedTime.h"
#include "platform/linux/packets/RouterAdvertisements.h"
#include "tests/unit/linux/NetworkTest.h"

namespace Linux {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes a, Bytes const& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes advertisement(std::uint8_t flags, std::uint16_t lifetime) {
  return Bytes{134, 0, 0, 0, 64, flags, std::uint8_t(lifetime >> 8), std::uint8_t(lifetime)} + Bytes(8);
}

// What a router does on the far end of a cable.
class Router {
 public:
  explicit Router(std::string const& device)
      : socket_(::socket(AF_INET6, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMPV6)),
        ifIndex_(if_nametoindex(device.c_str())) {
    icmp6_filter filter{};
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(ND_ROUTER_SOLICIT, &filter);
    set(IPPROTO_ICMPV6, ICMP6_FILTER, filter);
    set(IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 0);
    set(IPPROTO_IPV6, IPV6_MULTICAST_IF, ifIndex_);
    set(IPPROTO_IPV6, IPV6_ADD_MEMBERSHIP, ipv6_mreq{group(2), ifIndex_});
    set(SOL_SOCKET, SO_BINDTOIFINDEX, ifIndex_);
  }

  // As another router, whose address has been given to the device.
  void addressIs(std::string const& text) const {
    sockaddr_in6 source{AF_INET6, 0, 0, {}, ifIndex_};
    std::ranges::copy(Wire::Ip6Addr::fromString(text)->bytes, source.sin6_addr.s6_addr);
    EXPECT_EQ(bind(socket_.get(), reinterpret_cast<sockaddr const*>(&source), sizeof source), 0)
        << std::strerror(errno);
  }

  void advertise(std::uint8_t flags, std::uint16_t lifetime, int hopLimit = 255) const {
    set(IPPROTO_IPV6, IPV6_MULTICAST_HOPS, hopLimit);
    sockaddr_in6 const allNodes{AF_INET6, 0, 0, group(1), ifIndex_};
    Bytes const message = advertisement(flags, lifetime);
    EXPECT_EQ(sendto(socket_.get(), message.data(), message.size(), 0,
                     reinterpret_cast<sockaddr const*>(&allNodes), sizeof allNodes),
              static_cast<ssize_t>(message.size()))
        << std::strerror(errno);
  }

  // Waits for `count` solicitations and gives the address in the option of each.
  std::string solicitations(int count) const {
    std::string out;
    pollfd ready{socket_.get(), POLLIN, 0};
    for (int i = 0; i < count && poll(&ready, 1, 60'000) == 1; ++i) {
      Wire::EthAddr sender;
      std::uint8_t message[100];
      ssize_t const length = recv(socket_.get(), message, sizeof message, 0);
      bool const asExpected = length == 16 && message[1] == 0 && message[8] == 1 && message[9] == 1;
      if (asExpected) std::copy_n(message + 10, 6, sender.bytes.begin());
      out += asExpected ? sender.stringValue() + "\n" : "malformed\n";
    }
    return out;
  }

 private:
  static in6_addr group(std::uint8_t end) {
    return {{{0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, end}}};
  }
  template <typename T>
  void set(int level, int option, T const& value) const {
    EXPECT_EQ(setsockopt(socket_.get(), level, option, &value, sizeof value), 0) << std::strerror(errno);
  }

  Descriptor socket_;
  unsigned ifIndex_;
};

class RouterAdvertisementsTest : public NetworkTest {
 protected:
  // Devices whose link-local addresses are usable at once, and on which the kernel does not solicit.
  void prepare() override {
    cable("1");
    for (std::string const device : {"eth1", "far1"}) {
      for (std::string const setting : {"/accept_dad", "/router_solicitations"})
        std::ofstream("/proc/sys/net/ipv6/conf/" + device + setting) << 0;
    }
    ip("link set eth1 up", "link set far1 up");
    // What is sent before the devices carry frames is lost without a word. They get their addresses after
    // that.
    auto const addresses = [] { return output("ip -o -6 addr show scope link | wc -l"); };
    expectSoon(addresses, "2\n");
  }

  std::function<std::string()> const records = [this] {
    std::string out;
    for (auto const& [intfId, packet] : entities.raPacketStatus->raPacket()) {
      out += intfId.stringValue() + (packet->managed() ? " managed" : "") +
             (packet->other() ? " other" : "") + "\n";
    }
    return out;
  };
};

TEST_F(RouterAdvertisementsTest, AreInForceWhileAddressAndLifetimeLast) {
  ip("addr add fe80::98/64 dev far1 nodad", "addr add fe80::99/64 dev far1 nodad");
  Router const router("far1");
  router.addressIs("fe80::98");
  start();
  Kel::Loop::instance().runUntil([&] { return !adapter->ports()->port(port1).linkLocal.isZero(); }, patience);
  router.advertise(0xc0, 1800);
  expectSoon(records, "Ethernet1 managed other\n");
  router.advertise(0, 1800);
  expectSoon(records, "Ethernet1\n");
  auto const record = entities.raPacketStatus->raPacket(port1);
  // Not from this link, so it does not end the record.
  router.advertise(0, 0, 64);
  // What another router says counts as well, also when that is no default router.
  Router const other("far1");
  other.addressIs("fe80::99");
  other.advertise(0x80, 0);
  router.advertise(0x40, 1800);
  expectSoon(records, "Ethernet1 managed other\n");
  EXPECT_EQ(entities.raPacketStatus->raPacket(port1), record);
  router.advertise(0xc0, 0);  // it leaves
  expectSoon(records, "Ethernet1 managed\n");
  // Once a default router, it leaves too, however often it says so.
  other.advertise(0x80, 1800);
  other.advertise(0x80, 0);
  expectSoon(records, "");
  other.advertise(0x80, 0);
  router.advertise(0x40, 1800);
  expectSoon(records, "Ethernet1 other\n");
  router.advertise(0x40, 0);
  expectSoon(records, "");

  // Heard before there is a usable address, it waits for one.
  ip("addr flush dev eth1");
  expectSoon([this] { return adapter->ports()->port(port1).linkLocal.stringValue(); }, "::");
  router.advertise(0x80, 1800);
  ip("addr add fe80::1/64 dev eth1 nodad");
  expectSoon(records, "Ethernet1 managed\n");
  ip("link del eth1");
  expectSoon(records, "");
}

TEST_F(RouterAdvertisementsTest, AreAskedForThreeTimesUntilOneComes) {
  Kel::testing::SimulatedTime time;
  ip("addr add fe80::1/64 dev eth1 nodad");
  Router const router("far1");
  auto const ports = Kel::makePtr<Ports>();
  Port port{.deviceName = "eth1",
            .ifIndex = static_cast<int>(if_nametoindex("eth1")),
            .macAddr = *Wire::EthAddr::fromString("02:00:00:00:00:01"),
            .linkUp = true,
            .linkLocal = *Wire::Ip6Addr::fromString("fe80::1")};
  RouterAdvertisements const advertisements(ports, entities.raPacketStatus);
  // What is sent between the solicitations shows when they are sent.
  RouterDiscovery const marker([](int, Wire::Ip6Addr const&, RouterAdvertisement const&) {});
  auto const mark = [&] { marker.solicit(port.ifIndex, port.linkLocal, {}); };

  ports->portIs(port1, port);
  time.advance(3.9);
  mark();
  time.advance(4);
  mark();
  time.advance(100);
  mark();
  std::string const solicitation = "02:00:00:00:00:01\n";
  std::string const marked = "00:00:00:00:00:00\n";
  EXPECT_EQ(router.solicitations(6), solicitation + marked + solicitation + marked + solicitation + marked);

  // Another link, another round, which the answer ends.
  port.linkUp = false;
  ports->portIs(port1, port);
  port.linkUp = true;
  ports->portIs(port1, port);
  time.advance(1);
  EXPECT_EQ(router.solicitations(1), solicitation);
  router.advertise(0x80, 1800);
  // The kernel may take its time.
  for (int i = 0; i < 100'000 && records().empty(); ++i) time.settle();
  EXPECT_EQ(records(), "Ethernet1 managed\n");
  time.advance(100);
  mark();
  EXPECT_EQ(router.solicitations(1), marked);
  time.advance(1698);
  EXPECT_EQ(records(), "Ethernet1 managed\n");
  time.advance(3);
  EXPECT_EQ(records(), "");
  // No default router, so for as long as two of its advertisements may be apart.
  router.advertise(0x40, 0);
  for (int i = 0; i < 100'000 && records().empty(); ++i) time.settle();
  time.advance(1799);
  EXPECT_EQ(records(), "Ethernet1 other\n");
  time.advance(2);
  EXPECT_EQ(records(), "");
}

}  // namespace
}  // namespace Linux
