// The network value types: every text that is accepted comes back, everything else is refused.
#include <gtest/gtest.h>

#include "platform/model/agent.h"
#include "platform/model/values/Via.h"
#include "platform/model/values/VrfName.h"
#include "platform/model/values/Wire.h"

namespace {

template <typename T>
std::string parsed(std::string_view text) {
  auto const value = T::fromString(text);
  return value ? value->stringValue() : "refused";
}

struct Case {
  std::string (*parse)(std::string_view);
  std::string_view text;
  std::string result;
};

TEST(Values, accept_what_they_write_and_give_it_back) {
  constexpr auto ip = parsed<Wire::IpAddr>;
  constexpr auto ip6 = parsed<Wire::Ip6Addr>;
  constexpr auto any = parsed<Wire::IpGenAddr>;
  constexpr auto anyMask = parsed<Wire::IpGenAddrWithMask>;
  std::string const longest(64, 'E'), vrf(100, 'v');
  for (Case const& c :
       {Case{parsed<Wire::IntfId>, "Ethernet1/1", "Ethernet1/1"},
        Case{parsed<Wire::IntfId>, longest, longest},
        Case{parsed<Wire::EthAddr>, "02:1A:b3:0a:0b:0c", "02:1a:b3:0a:0b:0c"}, Case{ip, "0.0.0.0", "0.0.0.0"},
        Case{ip6, "2001:DB8:0:0::1", "2001:db8::1"}, Case{ip6, "::", "::"},
        Case{ip6, "::ffff:192.0.2.1", "::ffff:192.0.2.1"}, Case{any, "192.0.2.1", "192.0.2.1"},
        Case{parsed<Wire::IpAddrWithMask>, "10.0.0.5/24", "10.0.0.5/24"},
        Case{parsed<Wire::Ip6AddrWithMask>, "2001:db8::5/128", "2001:db8::5/128"},
        Case{anyMask, "10.0.0.5/32", "10.0.0.5/32"}, Case{anyMask, "::/0", "::/0"},
        Case{parsed<L3::VrfName>, vrf, vrf}, Case{parsed<Routing::Via>, "10.0.0.1", "10.0.0.1"},
        Case{parsed<Routing::Via>, "10.0.0.1@Ethernet1", "10.0.0.1@Ethernet1"}}) {
    EXPECT_EQ(c.parse(c.text), c.result);
    EXPECT_EQ(c.parse(c.result), c.result);
  }
}

TEST(Values, refuse_everything_else) {
  using namespace std::string_view_literals;
  constexpr auto mac = parsed<Wire::EthAddr>;
  constexpr auto ip = parsed<Wire::IpAddr>;
  constexpr auto ip6 = parsed<Wire::Ip6Addr>;
  constexpr auto mask = parsed<Wire::IpAddrWithMask>;
  constexpr auto mask6 = parsed<Wire::Ip6AddrWithMask>;
  constexpr auto via = parsed<Routing::Via>;
  std::string const name(65, 'E'), vrf(101, 'v');
  for (Case const& c : {Case{parsed<Wire::IntfId>, "", {}},
                        Case{parsed<Wire::IntfId>, name, {}},
                        Case{mac, "02:1a:b3:0a:0b:0c:0d", {}},
                        Case{mac, "02-1a-b3-0a-0b-0c", {}},
                        Case{mac, "+2:1a:b3:0a:0b:0c", {}},
                        Case{ip, "10.0.0", {}},
                        Case{ip, "10.0.0.256", {}},
                        Case{ip, "10.0.0.01", {}},
                        Case{ip, "0x0a.0.0.1", {}},
                        Case{ip, "10.0.0.1\0.evil"sv, {}},
                        Case{ip6, "10.0.0.1", {}},
                        Case{ip6, "fe80::1%eth0", {}},
                        Case{ip6, "::1\0"sv, {}},
                        Case{mask, "10.0.0.5", {}},
                        Case{mask, "10.0.0.5/33", {}},
                        Case{mask, "10.0.0.5/+8", {}},
                        Case{mask, "10.0.0.5/08", {}},
                        Case{mask, "10.0.0.5/4294967304", {}},
                        Case{mask6, "::1/129", {}},
                        Case{parsed<Wire::IpGenAddr>, "host", {}},
                        Case{parsed<Wire::IpGenAddrWithMask>, "10.0.0.1", {}},
                        Case{parsed<L3::VrfName>, vrf, {}},
                        Case{via, "@Ethernet1", {}},
                        Case{via, "10.0.0.1@", {}}}) {
    EXPECT_EQ(c.parse(c.text), "refused") << c.text;
  }
}

TEST(Values, keep_to_their_family_and_their_order) {
  Wire::IpGenAddr const none, v4(*Wire::IpAddr::fromString("10.0.0.1")),
      v6(*Wire::Ip6Addr::fromString("fe80::1"));
  EXPECT_FALSE(none.isV6());
  EXPECT_EQ(v4.v4().value, 0x0a000001U);
  EXPECT_EQ(v6.v6().bytes[0], 0xfe);
  EXPECT_LT(none, v4);
  EXPECT_LT(*Wire::IpAddr::fromString("9.0.0.0"), *Wire::IpAddr::fromString("10.0.0.0"));
  EXPECT_THROW(L3::VrfName(std::string(101, 'v')), std::range_error);
}

TEST(Values, of_flag_enumerations_combine) {
  using ZeroTouch::ProvisioningState;
  auto const both = ProvisioningState::stateInit | ProvisioningState::stateRetry;
  EXPECT_EQ(stringValue(both), "257");
  EXPECT_EQ(stringValue(both & ProvisioningState::stateRetry), "stateRetry");
  EXPECT_EQ(stringValue(both & ProvisioningState::stateShutdown), "stateInvalid");
}

}  // namespace
