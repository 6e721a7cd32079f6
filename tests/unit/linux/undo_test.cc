// What is remembered of devices, and put back.
#include "tests/unit/linux/NetworkTest.h"

namespace Linux {
namespace {

std::string text(UndoJournal const& journal) {
  std::ostringstream out;
  for (auto const& [ifIndex, entries] : journal.entries()) {
    for (auto const& [item, original] : entries) out << ifIndex << " " << item << "=" << original << "\n";
  }
  return out.str();
}

TEST(UndoJournal, IsReadWithCare) {
  TemporaryFolder const folder;
  std::string const path = folder.path("/journal");
  UndoJournal(path).entryIs(1, "up", "0");
  std::string const good = folder.read("/journal"), place = good.substr(0, good.find('\n') + 1);
  std::string const bad = "UNDO_JOURNAL_FAILED: Undo journal: " + path + ": line not understood: ";
  for (auto const& [file, entries, warning] : std::vector<std::tuple<std::string, char const*, std::string>>{
           {good, "1 up=0\n", ""},
           {good + "+ 2 mtu 15", "1 up=0\n", ""},  // torn: a change that was never made
           {good + "- 1 up\n", "", ""},
           {"boot other namespace other\n+ 1 up 0\n", "", ""},
           {"", "", ""},
           {place + "* 1 up 0\n+ x up 0\n+ -4 up 0\n+ 2 up 1\n", "2 up=1\n",
            bad + "* 1 up 0\n" + bad + "+ x up 0\n" + bad + "+ -4 up 0\n"}}) {
    folder.write("/journal", file);
    Warned const warned;
    EXPECT_EQ(text(UndoJournal(path)), entries) << file;
    EXPECT_EQ(warned.text(), warning) << file;
  }
}

TEST(UndoJournal, NeitherGrowsWithoutEndNorNeedsAFile) {
  TemporaryFolder const folder;
  folder.write("/file", "");
  Warned const warned;
  for (std::string const path : {"/journal", "/file/journal"}) {
    UndoJournal journal(folder.path(path));
    journal.entryIs(1, "up", "0");
    for (int i = 0; i < 10'000; ++i) {
      journal.entryIs(2, "mtu", "1500");
      journal.entryDel(2, "mtu");
    }
    EXPECT_EQ(text(journal), "1 up=0\n");
  }
  EXPECT_LT(std::filesystem::file_size(folder.path("/journal")), 10'000U);
  EXPECT_EQ(text(UndoJournal(folder.path("/journal"))), "1 up=0\n");
  EXPECT_NE(warned.text().find("journal: Not a directory"), std::string::npos) << warned.text();
}

class SettingsTest : public NetworkTest {
 protected:
  void prepare() override {
    cable("1");
    // Not what a kernel starts with, so that putting back differs from resetting.
    ip("link set far1 up", "link set eth1 mtu 1400");
    for (std::string const setting : {"accept_ra", "accept_ra_defrtr", "disable_ipv6"}) {
      std::ofstream("/proc/sys/net/ipv6/conf/eth1/" + setting) << (setting == "disable_ipv6");
    }
    ASSERT_EQ(kernel("eth1"), found);
  }
  // All that provisioning wants of a port, once a DHCP server has answered too.
  void configureAll() {
    start();
    EXPECT_EQ(kernel("eth1"), found) << "nothing is touched unasked";
    setUp(entities, port1);
    entities.ethPhyIntfConfigDir->intfConfig(port1)->mtuIs(1450);
    ip4Is("10.0.0.5/24");
    entities.ipConfig->ipIntfConfig(port1)->l3ConfigIs(entities.l3IntfConfigDir->intfConfig(port1));
    entities.ip6Config->intf(port1)->addrIs(*Wire::Ip6AddrWithMask::fromString("2001:db8::5/64"));
    expectSoon(eth1, "up mtu 1450 disable_ipv6 0 accept_ra 2 defrtr 1 10.0.0.5/24 2001:db8::5/64");
  }
  void ip4Is(char const* address) const {
    entities.ipConfig->ipIntfConfigIs(port1)->addrWithMaskIs(*Wire::IpAddrWithMask::fromString(address));
  }

  std::function<std::string()> const eth1 = [] { return kernel("eth1"); };
  std::function<std::string()> const inUse = [this] { return addresses(); };
  std::string const found = "down mtu 1400 disable_ipv6 1 accept_ra 0 defrtr 0";
  std::string const asSetUp = "up mtu 1400 disable_ipv6 0 accept_ra 2 defrtr 1";
};

TEST_F(SettingsTest, FollowTheirEntitiesAndGoBack) {
  configureAll();
  auto const ip6 = entities.ip6Config->intf(port1);
  ip6->addrSourceIs(Ip6::AddrSource::configured);
  ip6->addrDel(*Wire::Ip6AddrWithMask::fromString("2001:db8::5/64"));
  entities.ethPhyIntfConfigDir->intfConfig(port1)->mtuIs(1500);
  ip4Is("10.0.0.6/16");
  expectSoon(eth1, "up mtu 1400 disable_ipv6 0 accept_ra 0 defrtr 1 10.0.0.6/16");
  ip6->enableIs(false);
  entities.ipConfig->ipIntfConfigDel(port1);
  expectSoon(eth1, "up mtu 1400 disable_ipv6 1 accept_ra 0 defrtr 0");
  entities.l3IntfConfigDir->intfConfigDel(port1);
  expectSoon(eth1, found);

  // A device that gets another name is a port no more.
  setUp(entities, port1);
  expectSoon(eth1, asSetUp);
  ip("link set eth1 down", "link set eth1 name aside");
  expectSoon([] { return kernel("aside"); }, found);
  expectSoon([this] { return ports(); }, "");
  ip("link set aside name eth7");
  expectSoon([this] { return ports(); }, "Ethernet7 eth7 down unconfigured link down active\n");
}

TEST_F(SettingsTest, LeaveAloneWhatOthersDoLater) {
  configureAll();
  ip("link set eth1 mtu 1300", "link set eth1 down");
  expectSoon([&] { return ports(); }, "Ethernet1 eth1 down routed link down active\n");
  EXPECT_EQ(kernel("eth1"), "down mtu 1300 disable_ipv6 0 accept_ra 2 defrtr 1 10.0.0.5/24");
  // The IPv6 address went with the link and comes back with it.
  ip("link set eth1 up");
  expectSoon(eth1, "up mtu 1300 disable_ipv6 0 accept_ra 2 defrtr 1 10.0.0.5/24 2001:db8::5/64");
}

TEST_F(SettingsTest, ThatTheKernelRefusesAreAWarning) {
  start();
  setUp(entities, port1);
  entities.ethPhyIntfConfigDir->intfConfig(port1)->mtuIs(1450);
  expectSoon(eth1, "up mtu 1450 disable_ipv6 0 accept_ra 2 defrtr 1");
  Warned const warned;
  entities.ethPhyIntfConfigDir->intfConfig(port1)->mtuIs(4'000'000'000);
  entities.ip6Config->intf(port1)->addrIs(*Wire::Ip6AddrWithMask::fromString("ff02::1/64"));
  ip4Is("127.0.0.1/8");
  entities.ethPhyIntfConfigDir->intfConfig(port1)->linkModeLocalIs(Interface::EthLinkMode::linkMode10G);
  std::string const failed = "PORT_SETTING_FAILED: Cannot set ";
  expectSoon(
      [&] { return warned.text(); },
      failed + "mtu of port Ethernet1 (device eth1) to 4000000000: not an MTU\n" + failed +
          "link_mode of port Ethernet1 (device eth1) to forced 10g: the device does not support it\n" +
          failed + "address:127.0.0.1/8 of port Ethernet1 (device eth1) to present: a loopback address\n" +
          failed + "address:ff02::1/64 of port Ethernet1 (device eth1) to present: a multicast address\n");
  // What a refused value was to replace goes back to what was found.
  entities.ethPhyIntfConfigDir->intfConfig(port1)->mtuIs(1500);
  expectSoon(eth1, asSetUp);
}

TEST_F(SettingsTest, AddressesCountOnceTheyAreInUse) {
  start();
  setUp(entities, port1);
  expectSoon(eth1, asSetUp);
  ip("addr add 169.254.3.3/16 dev eth1", "addr add 10.0.0.1/24 dev eth1", "addr add 2001:db8::7/64 dev eth1");
  // An IPv6 address is tentative at first, and hence not there; a link-local one never is.
  expectSoon(inUse, "Ethernet1 10.0.0.1/24\n");
  expectSoon(inUse, "Ethernet1 10.0.0.1/24 2001:db8::7/64\n");

  // A configured address counts before one that was there; it is the one that others wait for.
  ip4Is("10.0.0.5/24");
  expectSoon(inUse, "Ethernet1 10.0.0.5/24 2001:db8::7/64\n");
  ip4Is("0.0.0.0/32");
  expectSoon(inUse, "Ethernet1 10.0.0.1/24 2001:db8::7/64\n");

  // One that somebody else has on the cable is never in use.
  ip("addr add 2001:db8::8/64 dev far1 nodad", "addr add 2001:db8::8/64 dev eth1");
  expectSoon([] { return output("ip -o addr show dev eth1 | grep -o dadfailed"); }, "dadfailed\n");
  ip("addr del 10.0.0.1/24 dev eth1");
  expectSoon(inUse, "Ethernet1 2001:db8::7/64\n");
}

}  // namespace
}  // namespace Linux
