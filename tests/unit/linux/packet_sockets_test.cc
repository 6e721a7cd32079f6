// Sockets for whoever asked for frames.
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Format.h"
#include "platform/linux/Descriptor.h"
#include "tests/unit/linux/NetworkTest.h"

namespace Linux {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Accepts LLDP: operation, jt, jf, operand (bpf(2), classic).
constexpr Interface::FilterInstruction lldpFilter[] = {
    {0x28, 0, 0, 12}, {0x15, 0, 1, 0x88cc}, {0x06, 0, 0, 65535}, {0x06, 0, 0, 0}};

Bytes frame(std::uint16_t etherType, std::size_t size = 60) {
  Bytes result{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0, 0, 0, 0, 0x77};
  result.push_back(static_cast<std::uint8_t>(etherType >> 8));
  result.push_back(static_cast<std::uint8_t>(etherType));
  result.resize(size);
  return result;
}

std::string shown(Bytes const& frame) {
  return Kel::format("%02x%02x ", frame[12], frame[13]) + std::to_string(frame.size()) + "\n";
}

// Sends as if from another system, when the device is the far end of a cable.
class Sender {
 public:
  void send(std::string const& device, Bytes const& frame) const {
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex(device.c_str()));
    ASSERT_EQ(
        sendto(socket_.get(), frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
        static_cast<ssize_t>(frame.size()))
        << device << ": " << std::strerror(errno);
  }

 private:
  Descriptor const socket_{::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)};
};

class PacketSocketsTest : public NetworkTest {
 protected:
  // Takes frames from one socket as they are announced.
  struct Reader : Wire::Pam::NotifieeConst {
    explicit Reader(Kel::Ptr<Wire::Pam> const& p) : NotifieeConst(p), pam(*p) {}
    void onReadableCount() override {
      frames += shown(pam.rxPkt());
      EXPECT_TRUE(pam.rxPkt().empty()) << "one frame per notification";
    }
    Wire::Pam& pam;
    std::string frames;
  };

  void prepare() override {
    cable("1");
    plugIn("1");
    start();
    sender.emplace();
    auto const root = Kel::makePtr<Interface::NetNsIntfStatusManagerRoot>(
        entities.allIntfStatusDir, entities.allIntfStatusLocalDir, KernelNetInfo::NamespaceName());
    root->deviceIntfStatusDirIs(disd);
    Kel::activityManager()->localEntityIs("test/devices", root);
    manager->ethProtocolIs(ETH_P_ALL);
    for (std::uint16_t i = 0; i < std::size(lldpFilter); ++i) manager->filterProgramIs(i, lldpFilter[i]);
    Kel::activityManager()->localEntityIs("test/pam", manager);
    manager->enabledIs(true);
    pdid->intfDesiredIs(port1, true);
  }
  void TearDown() override {
    for (char const* const name : {"test/pam", "test/devices"}) Kel::activityManager()->localEntityDel(name);
  }

  Kel::Ptr<Reader> reader() {
    Kel::Loop::instance().runUntil([&] { return bool(edpc->intfPam(port1)); }, 10);
    auto const pam = edpc->intfPam(port1);
    return pam ? Kel::makePtr<Reader>(pam) : nullptr;
  }
  std::function<std::string()> const open = [this] {
    std::string out;
    for (auto const& [intfId, pam] : edpc->intfPam()) out += intfId.stringValue() + "\n";
    return out;
  };

  std::optional<Sender> sender;
  Kel::Ptr<Interface::DeviceIntfStatusDir> disd = Kel::makePtr<Interface::DeviceIntfStatusDir>("disd");
  Kel::Ptr<Interface::PamDesiredIntfDir> pdid = Kel::makePtr<Interface::PamDesiredIntfDir>("pdid");
  Kel::Ptr<Interface::EthDevPamCollection> edpc = Kel::makePtr<Interface::EthDevPamCollection>("edpc");
  Kel::Ptr<Interface::EthDevPamManager> manager = Kel::makePtr<Interface::EthDevPamManager>(pdid, edpc, disd);
};

TEST_F(PacketSocketsTest, FollowsWishesDevicesAndOptions) {
  auto read = reader();
  ASSERT_TRUE(read);
  std::function<std::string()> const frames = [&] { return read->frames; };
  auto const first = edpc->intfPam(port1);
  sender->send("far1", frame(0x88cc, 1514));
  sender->send("far1", frame(0x0800));
  sender->send("eth1", frame(0x88cc, 61));  // what the system sends itself is not handed over
  sender->send("far1", frame(0x88cc, 62));
  expectSoon(frames, "88cc 1514\n88cc 62\n");

  // The device goes, with the socket in use, and comes back as another one.
  ip("link del eth1");
  expectSoon(open, "");
  EXPECT_EQ(disd->deviceIndex().size(), 0U);
  cable("1");
  expectSoon(open, "Ethernet1\n");
  EXPECT_NE(edpc->intfPam(port1), first);

  // Down and up again, the socket goes on.
  read = reader();
  ip("link set eth1 up", "link set eth1 down", "link set eth1 up", "link set far1 up");
  Kel::Loop::instance().runUntil([&] { return adapter->ports()->port(port1).linkUp; }, 10);
  sender->send("far1", frame(0x88cc));
  expectSoon(frames, "88cc 60\n");

  // Another filter opens the socket anew.
  manager->filterProgramIs(0, {0x06, 0, 0, 20});
  expectSoon(open, "Ethernet1\n");
  read = reader();
  sender->send("far1", frame(0x0800));
  expectSoon(frames, "0800 20\n");

  pdid->intfDesiredDel(port1);
  expectSoon(open, "");
  pdid->intfDesiredIs(port1, true);
  expectSoon(open, "Ethernet1\n");
  manager->enabledIs(false);
  EXPECT_EQ(open(), "");
}

TEST_F(PacketSocketsTest, AFloodHoldsUpNobody) {
  auto const read = reader();
  ASSERT_TRUE(read);
  // More than the socket can hold.
  for (int i = 0; i < 5000; ++i) sender->send("far1", frame(0x88cc));
  // Each pass of the loop hands over one frame at most, so that what else is due has its turn.
  struct Ticks : Kel::Clock::NotifieeConst {
    Ticks(Wire::Pam const& p)
        : NotifieeConst(Kel::activityManager()->config()->clock()), pam(p), seen(p.readableCount()) {
      timeMinIs(Kel::now());
    }
    void onTime() override {
      most = std::max(most, pam.readableCount() - seen);
      seen = pam.readableCount();
      if (++count < 20) timeMinIs(Kel::now());
    }
    Wire::Pam const& pam;
    std::uint64_t seen, most = 0;
    int count = 0;
  };
  auto const pam = edpc->intfPam(port1);
  auto const ticks = Kel::makePtr<Ticks>(*pam);
  EXPECT_TRUE(Kel::Loop::instance().runUntil([&] { return ticks->count == 20; }, 10));
  EXPECT_LE(ticks->most, 2U);
  EXPECT_GT(pam->readableCount(), 0U);
  EXPECT_LT(pam->readableCount(), 5000U);
}

}  // namespace
}  // namespace Linux
