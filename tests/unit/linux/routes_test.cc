// Static routes in the kernel.
#include "tests/unit/linux/NetworkTest.h"

namespace Linux {
namespace {

class RoutesTest : public NetworkTest {
 protected:
  void prepare() override {
    for (std::string const number : {"1", "2"}) {
      cable(number);
      ip("link set far" + number + " up", "link set eth" + number + " up",
         "addr add 10.0." + number + ".5/24 dev eth" + number);
    }
  }

  static Wire::IpAddrWithMask prefix(std::string const& text) {
    return *Wire::IpAddrWithMask::fromString(text);
  }
  void viaIs(std::string const& to, std::string const& via) const {
    list()->routeIs(prefix(to), Routing::RouteType::forward)->viaIs(*Routing::Via::fromString(via), true);
  }
  Kel::Ptr<Routing::RouteList> const& list() const { return entities.routingConfig->routeList(); }

  // "prefix dev device", or "prefix gateway device gateway device", of all routes but the kernel's own.
  static std::string routes() {
    return output(R"sh(ip -json route show | jq -j '.[] | select(.protocol != "kernel") | .dst,
        (.nexthops // [.] | sort_by(.gateway) | .[] | " ", .gateway // "-", " ", .dev),
        (select(.protocol != "142") | " (" + .protocol + ")"), "\n"')sh");
  }
};

TEST_F(RoutesTest, ComeChangeSurviveTheirLinkAndGo) {
  start();
  viaIs("0.0.0.0/0", "10.0.1.1");
  viaIs("0.0.0.0/0", "10.0.2.1");
  viaIs("10.9.1.1/16", "10.0.1.2");  // the bits behind the mask mean nothing
  viaIs("10.8.0.0/16", "0.0.0.0@Ethernet2");
  std::string const all =
      "default 10.0.1.1 eth1 10.0.2.1 eth2\n10.8.0.0/16 - eth2\n10.9.0.0/16 10.0.1.2 eth1\n";
  expectSoon(routes, all);
  viaIs("10.9.1.1/16", "10.0.1.3");
  list()->route(prefix("10.9.1.1/16"))->viaDel(*Routing::Via::fromString("10.0.1.2"));
  list()->route({})->viaDel(*Routing::Via::fromString("10.0.2.1"));
  expectSoon(routes, "default 10.0.1.1 eth1\n10.8.0.0/16 - eth2\n10.9.0.0/16 10.0.1.3 eth1\n");

  ip("link set eth1 down");
  expectSoon(routes, "10.8.0.0/16 - eth2\n");
  ip("link set eth1 up");
  expectSoon(routes, "default 10.0.1.1 eth1\n10.8.0.0/16 - eth2\n10.9.0.0/16 10.0.1.3 eth1\n");

  list()->routeDel(prefix("10.9.1.1/16"));
  expectSoon(routes, "default 10.0.1.1 eth1\n10.8.0.0/16 - eth2\n");
  adapter.reset();
  EXPECT_EQ(routes(), "");
}

TEST_F(RoutesTest, OfOthersAreLeftAloneAndThoseOfAKilledHostGo) {
  ip("route add default via 10.0.2.9 proto static", "route add 10.9.0.0/16 via 10.0.2.9 proto 142 metric 7",
     "route add 10.8.0.0/16 via 10.0.1.2 proto 142 metric 1");
  Warned const warned;
  start();
  std::string const foreign = "default 10.0.2.9 eth2 (static)\n10.9.0.0/16 10.0.2.9 eth2\n";
  EXPECT_EQ(routes(), foreign);
  EXPECT_EQ(warned.text(), "LEFTOVERS_UNDONE: Put back 1 setting of the system\n");
  viaIs("0.0.0.0/0", "10.0.1.1");
  expectSoon(routes, "default 10.0.2.9 eth2 (static)\ndefault 10.0.1.1 eth1\n10.9.0.0/16 10.0.2.9 eth2\n");
  list()->routeDelAll();
  expectSoon(routes, foreign);
  adapter.reset();
  EXPECT_EQ(routes(), foreign);
}

TEST_F(RoutesTest, UseTheNextHopsThatAreReachableAndTheOthersOnceTheyAre) {
  start();
  Warned const warned;
  for (char const* via : {"10.0.1.1", "10.7.0.1", "10.6.0.1@Ethernet9"}) viaIs("0.0.0.0/0", via);
  viaIs("10.9.0.0/16", "10.7.0.2");
  viaIs("10.8.0.0/16", "127.0.0.1");
  viaIs("224.0.0.0/4", "10.0.1.1");
  expectSoon(routes, "default 10.0.1.1 eth1\n");
  std::string const dropped =
      "VALUE_DROPPED: The next hop '10.8.0.0/16 via 127.0.0.1' is not used: a loopback address\n"
      "VALUE_DROPPED: The route '224.0.0.0/4' is not used: a multicast, broadcast or reserved address\n";
  std::string const refused =
      "ROUTE_NOT_IN_USE: Route 0.0.0.0/0 does not use 10.6.0.1 (there is no port Ethernet9), 10.7.0.1 "
      "(Network is unreachable)\n"
      "ROUTE_NOT_IN_USE: Route 10.9.0.0/16 does not use 10.7.0.2 (Network is unreachable)\n";
  // A change that helps nothing is no reason to say it again.
  ip("addr add 10.5.0.5/24 dev eth2");
  expectSoon([&] { return warned.text(); }, dropped + refused);
  ip("addr add 10.7.0.5/24 dev eth2");
  expectSoon(routes, "default 10.0.1.1 eth1 10.7.0.1 eth2\n10.9.0.0/16 10.7.0.2 eth2\n");
  EXPECT_EQ(warned.text(), dropped + refused);
}

TEST_F(RoutesTest, ReachGatewaysThatAreInNoNetwork) {
  ip("addr flush dev eth2", "addr add 10.2.0.5/32 dev eth2");
  start();
  // The default route comes first, and is possible with the second only.
  viaIs("0.0.0.0/0", "10.2.0.1");
  viaIs("10.2.0.1/32", "0.0.0.0@Ethernet2");
  expectSoon(routes, "default 10.2.0.1 eth2\n10.2.0.1 - eth2\n");
  // Without it, the gateway can only be where that address is.
  list()->routeDelAll();
  expectSoon(routes, "");
  for (char const* via : {"10.2.0.1", "10.2.0.2", "10.0.1.1"}) viaIs("0.0.0.0/0", via);
  expectSoon(routes, "default 10.0.1.1 eth1 10.2.0.1 eth2 10.2.0.2 eth2\n");
  // With two such addresses it could be either.
  list()->routeDelAll();
  expectSoon(routes, "");
  ip("addr add 10.1.0.5/32 dev eth1");
  for (char const* via : {"10.2.0.1", "10.0.1.1"}) viaIs("0.0.0.0/0", via);
  expectSoon(routes, "default 10.0.1.1 eth1\n");
}

TEST_F(RoutesTest, ThatTakeOverEverythingOrTheManagementNetworkAreToldOf) {
  ip("link add ma1 type veth peer name ma2", "addr add 10.9.3.5/24 dev ma1");
  start();
  Warned const warned;
  std::string const all = " (device eth1) take over all addresses: they win against every default route\n";
  auto const seen = [&] { return warned.text(); };
  // A default route is what it says, these are as good as none, and a network of the port itself is its own.
  for (char const* prefix : {"0.0.0.0/0", "128.0.0.0/1", "64.0.0.0/2", "10.0.1.0/25", "10.8.0.0/16"})
    viaIs(prefix, "10.0.1.1");
  viaIs("0.0.0.0/2", "10.0.2.1");  // by another port
  auto const count = [](std::string const& to) { return output("ip route show " + to + " | wc -l"); };
  expectSoon([&] { return count("0.0.0.0/2"); }, "1\n");
  EXPECT_EQ(seen(),
            "ROUTES_TAKE_OVER: Routes by port Ethernet2 (device eth2) take over addresses of the management "
            "network 10.9.3.0/24 of device ma1, by 0.0.0.0/2\n");
  std::string const before = seen();
  viaIs("0.0.0.0/2", "0.0.0.0@Ethernet1");
  viaIs("10.9.3.128/25", "10.0.1.1");
  expectSoon(seen, before +
                       "ROUTES_TAKE_OVER: Routes by port Ethernet1 (device eth1) take over addresses of the "
                       "management network 10.9.3.0/24 of device ma1, by 0.0.0.0/2\n"
                       "ROUTES_TAKE_OVER: Routes by port Ethernet1" +
                       all);
  expectSoon([&] { return count("10.9.3.128/25"); }, "1\n");  // applied all the same
}

}  // namespace
}  // namespace Linux
