// Frames through the kernel's filter to whoever asked for a packet socket.
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

// Accepts LLDP to 01:80:c2:00:00:0e, plain or in one 802.1Q tag: operation, jt, jf, operand (bpf(2),
// classic).
constexpr Interface::FilterInstruction lldpFilter[] = {
    {0x20, 0, 0, 2},      {0x15, 0, 8, 0xc200000e}, {0x28, 0, 0, 0},      {0x15, 0, 6, 0x0180},
    {0x28, 0, 0, 12},     {0x15, 3, 0, 0x88cc},     {0x15, 0, 3, 0x8100}, {0x28, 0, 0, 16},
    {0x15, 0, 1, 0x88cc}, {0x06, 0, 0, 65535},      {0x06, 0, 0, 0}};

Bytes const nearest{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};

// Addresses, then the words given, then `padding` bytes.
Bytes frame(Bytes result, std::vector<std::uint16_t> const& words, std::size_t padding = 46) {
  for (std::uint8_t const byte : {0x02, 0, 0, 0, 0, 0x77}) result.push_back(byte);
  for (std::uint16_t const word : words) {
    result.push_back(static_cast<std::uint8_t>(word >> 8));
    result.push_back(static_cast<std::uint8_t>(word));
  }
  result.resize(result.size() + padding, 0xa5);
  return result;
}

// What stands behind the addresses, up to the padding.
std::string shown(Bytes const& frame) {
  std::string out;
  for (std::size_t i = 12; i + 1 < frame.size() && frame[i] != 0xa5; i += 2) {
    out += Kel::format("%02x%02x ", frame[i], frame[i + 1]);
  }
  return out + std::to_string(frame.size()) + "\n";
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
    manager->listenAddrIs(*Wire::EthAddr::fromString("01:80:c2:00:00:02"));
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

// A frame that the filter drops is followed by one that it accepts, so that silence has an end.
TEST_F(PacketSocketsTest, HandsOverWhatTheFilterAccepts) {
  auto const read = reader();
  ASSERT_TRUE(read);
  Bytes const other{0x01, 0x80, 0xc2, 0x00, 0x00, 0x00};
  Bytes const almost{0x01, 0x81, 0xc2, 0x00, 0x00, 0x0e};
  using Case = std::tuple<char const*, Bytes, char const*>;
  for (auto const& [what, sent, received] : std::vector<Case>{
           {"plain", frame(nearest, {0x88cc}), "88cc 60\n"},
           {"tagged", frame(nearest, {0x8100, 0x6123, 0x88cc}), "8100 6123 88cc 64\n"},
           {"priority-tagged", frame(nearest, {0x8100, 0, 0x88cc}), "8100 0000 88cc 64\n"},
           {"double-tagged", frame(nearest, {0x8100, 5, 0x8100, 6, 0x88cc}), "8100 0005 8100 0006 88cc 68\n"},
           {"service tag", frame(nearest, {0x88a8, 5, 0x8100, 6, 0x88cc}), "88a8 0005 8100 0006 88cc 68\n"},
           {"shortest", frame(nearest, {0x88cc}, 0), "88cc 14\n"},
           {"longest", frame(nearest, {0x88cc}, 1500), "88cc 1514\n"},
           {"triple-tagged", frame(nearest, {0x8100, 5, 0x8100, 6, 0x8100, 7, 0x88cc}), ""},
           {"other EtherType", frame(nearest, {0x0800}), ""},
           {"other EtherType in a tag", frame(nearest, {0x8100, 5, 0x0800}), ""},
           {"other destination", frame(other, {0x88cc}), ""},
           {"destination that begins otherwise", frame(almost, {0x88cc}), ""}}) {
    read->frames.clear();
    sender->send("far1", sent);
    sender->send("far1", frame(nearest, {0x88cc}, 99));
    Kel::Loop::instance().runUntil([&] { return read->frames.ends_with("88cc 113\n"); }, 10);
    EXPECT_EQ(read->frames, received + std::string("88cc 113\n")) << what;
  }
  // What the system sends itself is none of them.
  read->frames.clear();
  sender->send("eth1", frame(nearest, {0x88cc}, 50));
  sender->send("far1", frame(nearest, {0x88cc}, 60));
  expectSoon([&] { return read->frames; }, "88cc 74\n");
}

TEST_F(PacketSocketsTest, FollowsWishesDevicesAndOptions) {
  auto read = reader();
  ASSERT_TRUE(read);
  auto const first = edpc->intfPam(port1);

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
  sender->send("far1", frame(nearest, {0x88cc}));
  expectSoon([&] { return read->frames; }, "88cc 60\n");

  // Another filter opens the socket anew.
  manager->filterProgramIs(0, {0x06, 0, 0, 20});
  expectSoon(open, "Ethernet1\n");
  read = reader();
  sender->send("far1", frame(nearest, {0x0800}));
  expectSoon([&] { return read->frames; }, "0800 20\n");

  pdid->intfDesiredDel(port1);
  expectSoon(open, "");
  pdid->intfDesiredIs(port1, true);
  expectSoon(open, "Ethernet1\n");
  manager->enabledIs(false);
  EXPECT_EQ(open(), "");
  manager->enabledIs(true);
  expectSoon(open, "Ethernet1\n");
  Kel::activityManager()->localEntityDel("test/pam");
  EXPECT_EQ(open(), "");
}

TEST_F(PacketSocketsTest, AFloodHoldsUpNobody) {
  auto const read = reader();
  ASSERT_TRUE(read);
  // More than the socket can hold.
  for (int i = 0; i < 5000; ++i) sender->send("far1", frame(nearest, {0x88cc}));
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
