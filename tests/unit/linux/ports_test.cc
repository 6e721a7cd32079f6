// How devices become ports: selection, life cycle, membership, names.
#include "tests/unit/linux/NetworkTest.h"

namespace Linux {
namespace {

TEST(PortSelection, TakesDevicesByPatternElseByHardware) {
  TemporaryFolder const sysfs;
  sysfs.write("/eth0/device/vendor", "");
  sysfs.write("/br0/mtu", "1500");
  auto const selected = [&](std::vector<std::string> const& patterns) {
    std::string out;
    for (std::string const device : {"eth0", "br0", "gone", "ma1", "ma10", "lo"}) {
      if (PortSelection({patterns, {}, sysfs.path()}).selects(device)) out += device + " ";
    }
    return out;
  };
  EXPECT_EQ(selected({}), "eth0 ");
  EXPECT_EQ(selected({"et*", "ma[0-9]"}), "eth0 ma1 ");
}

TEST(PortSelection, NamesPortsByTheFirstRuleThatFitsTheWholeName) {
  PortSelection const selection({{},
                                 {{"eth(\\d+)_(\\d+)", "Ethernet\\1/\\2"},
                                  {"eth(.*)", "Ethernet\\1"},
                                  {"ma(.*)", "Management\\1"},
                                  {"sw(p)?([[:digit:]]+)", "\\&\\1\\2&\\9\\"},
                                  {"long", std::string(65, 'x')}}});
  std::string shown;
  for (auto const* device : {"eth7", "eth7_2", "ma1", "sw1", "xma1", "long"})
    shown += selection.intfId(device).stringValue() + " ";
  EXPECT_EQ(shown, "Ethernet7 Ethernet7/2 Management1 &1sw1\\ xma1  ");
  EXPECT_THROW(PortSelection({{}, {{"eth(", "x"}}}), std::invalid_argument);
}

using PortsTest = NetworkTest;

TEST_F(PortsTest, TakesNothingButEthernetDevicesWhateverTheirNames) {
  ip("link add eth1 type bridge", "tuntap add eth2 mode tun", "tuntap add eth3 mode tap", "link set lo down",
     "link set lo name eth4");
  start();
  EXPECT_EQ(ports(), "Ethernet3 eth3 down unconfigured link down active\n");
}

TEST_F(PortsTest, GivesANameThatTwoDevicesClaimToOneAtATime) {
  cable("1");
  ip("link add eth01 type veth peer name far01");
  AdapterConfig config = testConfig(run.path("/run"));
  config.ports.names = {{"eth0?([0-9])", "Ethernet\\1"}};
  Warned const warned;
  adapter = std::make_unique<Adapter>(entities, config);
  EXPECT_EQ(ports(), "Ethernet1 eth1 down unconfigured link down active\n");
  ip("link set eth01 mtu 1400");
  cable("2");
  ip("link del eth2", "link del eth1");
  expectSoon([this] { return ports(); }, "Ethernet1 eth01 down unconfigured link down active\n");
  EXPECT_EQ(warned.text(),
            "PORT_NAME_IN_USE: Device eth01 is ignored: its name Ethernet1 belongs to device eth1\n");
}

TEST_F(PortsTest, ReadsEverythingAnewAfterAnOverrun) {
  cable("1");
  cable("2");
  start(1);
  unsigned const dumpsBefore = adapter->netlink().dumps();
  auto const index = [&](auto const& port) { return adapter->ports()->port(port).ifIndex; };
  int const index1 = index(port1), index2 = index(port2);
  // Far more than the socket holds, and all of it unread; two ports have changed names at the end.
  for (int i = 0; i < 10; ++i) {
    cable("9");
    ip("link del eth9");
  }
  ip("link set eth1 name swap", "link set eth2 name eth1", "link set swap name eth2",
     "addr add 10.0.0.1/24 dev eth2");
  expectSoon([&] { return adapter->netlink().dumps() > dumpsBefore ? ports() : "not yet read anew"; },
             "Ethernet1 eth1 down unconfigured link down active\nEthernet2 eth2 down unconfigured link down "
             "active\n");
  EXPECT_EQ(index(port1), index2);
  EXPECT_EQ(index(port2), index1);
  expectSoon([&] { return addresses(); }, "Ethernet2 10.0.0.1/24\n");
}

}  // namespace
}  // namespace Linux
