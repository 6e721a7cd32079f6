// The network value types: every text that is accepted comes back, everything else is refused.
#include <gtest/gtest.h>

#include "platform/model/values/Grammar.h"
#include "platform/model/values/Names.h"
#include "platform/model/values/Wire.h"

namespace {

using namespace std::string_view_literals;

template <typename T>
std::string parsed(std::string_view text) {
  auto const value = T::fromString(text);
  return value ? value->stringValue() : "refused";
}

struct Texts {
  std::string (*parse)(std::string_view);
  std::vector<std::string_view> texts;
};

constexpr auto mac = parsed<Wire::EthAddr>;
constexpr auto ip = parsed<Wire::IpAddr>;
constexpr auto ip6 = parsed<Wire::Ip6Addr>;
constexpr auto any = parsed<Wire::IpGenAddr>;
constexpr auto mask = parsed<Wire::IpAddrWithMask>;
constexpr auto mask6 = parsed<Wire::Ip6AddrWithMask>;
constexpr auto anyMask = parsed<Wire::IpGenAddrWithMask>;
constexpr auto via = parsed<Routing::Via>;

TEST(Values, accept_what_they_write_and_give_it_back) {
  std::string const longest(64, 'E'), vrf(100, 'v');
  for (auto const& [parse, texts] :
       {Texts{parsed<Wire::IntfId>, {"Ethernet1/1", longest}}, Texts{mac, {"02:1a:b3:0a:0b:0c"}},
        Texts{ip, {"0.0.0.0"}}, Texts{ip6, {"2001:db8::1", "::", "::ffff:192.0.2.1"}},
        Texts{any, {"192.0.2.1"}}, Texts{mask, {"10.0.0.5/24"}}, Texts{mask6, {"2001:db8::5/128"}},
        Texts{anyMask, {"10.0.0.5/32", "::/0"}}, Texts{parsed<L3::VrfName>, {vrf}},
        Texts{via, {"10.0.0.1", "10.0.0.1@Ethernet1"}}}) {
    for (auto const text : texts) EXPECT_EQ(parse(text), text);
  }
  EXPECT_EQ(mac("02:1A:b3:0a:0b:0c"), "02:1a:b3:0a:0b:0c");
  EXPECT_EQ(ip6("2001:DB8:0:0::1"), "2001:db8::1");
}

TEST(Values, refuse_everything_else) {
  std::string const name(65, 'E'), vrf(101, 'v');
  for (auto const& [parse, texts] :
       {Texts{parsed<Wire::IntfId>, {"", name}},
        Texts{mac, {"02:1a:b3:0a:0b:0c:0d", "02-1a-b3-0a-0b-0c", "+2:1a:b3:0a:0b:0c"}},
        Texts{ip, {"10.0.0", "10.0.0.256", "10.0.0.01", "0x0a.0.0.1", "10.0.0.1\0.evil"sv}},
        Texts{ip6, {"10.0.0.1", "fe80::1%eth0", "::1\0"sv}},
        Texts{mask, {"10.0.0.5", "10.0.0.5/33", "10.0.0.5/+8", "10.0.0.5/08", "10.0.0.5/4294967304"}},
        Texts{mask6, {"::1/129"}}, Texts{any, {"host"}}, Texts{anyMask, {"10.0.0.1"}},
        Texts{parsed<L3::VrfName>, {vrf}}, Texts{via, {"@Ethernet1", "10.0.0.1@"}}}) {
    for (auto const text : texts) EXPECT_EQ(parse(text), "refused") << text;
  }
}

TEST(Values, are_ordered_by_their_number_not_their_text) {
  EXPECT_LT(Wire::IpGenAddr(), *Wire::IpGenAddr::fromString("10.0.0.1"));
  EXPECT_LT(*Wire::IpAddr::fromString("9.0.0.0"), *Wire::IpAddr::fromString("10.0.0.0"));
}

TEST(Grammar, host_names_are_those_of_rfc_1123) {
  std::string const label(63, 'a');
  std::string const longest = label + "." + label + "." + label + "." + std::string(61, 'a');
  for (auto const& name : std::vector<std::string>{"a", "sw-1.example.com", "0", longest}) {
    EXPECT_EQ(Grammar::nameFault(name), "") << name;
  }
  using namespace std::string_literals;
  for (auto const& name :
       std::vector<std::string>{"", ".", "a.", ".a", "a..b", "-a", "a-", "a_b", "a b", "a\nb", "a\0"s,
                                "\xc3\xa4", "a\"b", "$(a)", label + "a", longest + "a"}) {
    EXPECT_NE(Grammar::nameFault(name), "") << name;
  }
}

TEST(Grammar, passwords_in_urls_are_not_shown) {
  for (auto const& [url, shown] : std::initializer_list<std::pair<char const*, char const*>>{
           {"http://h/c", "http://h/c"},
           {"ftp://user@h/c", "ftp://user@h/c"},
           {"ftp://user:secret@h:21/c", "ftp://user:***@h:21/c"},
           {"http://u:p@q:r@h?x:y@z", "http://u:***@h?x:y@z"},
           {"http://h/a:b@c", "http://h/a:b@c"},
           {"http://u:@h", "http://u:***@h"},
           {"tftp://s/ftp://u:p@h/c", "tftp://s/ftp://u:***@h/c"},
           {"ftp:u:p@h/c", "ftp:***@h/c"},
           {"cfg", "cfg"},
           {"//", "//"},
           {"", ""}})
    EXPECT_EQ(Grammar::withoutPasswords(url), shown);
}

TEST(Grammar, addresses_that_no_neighbour_has_are_refused) {
  for (auto const& [address, port, host] : std::vector<std::tuple<std::string, char const*, char const*>>{
           {"10.0.0.5/24", "", ""},
           {"10.0.0.5/0", "an address without a mask", ""},
           {"0.0.0.1/8", "of no machine", "of no machine"},
           {"240.0.0.1/24", "a multicast, broadcast or reserved address",
            "a multicast, broadcast or reserved address"},
           {"2001:db8::5/64", "", ""},
           {"fe80::1/64", "", "a link-local address"},
           {"ff02::1/64", "a multicast address", "a multicast address"},
           {"::ffff:10.0.0.1/96", "of no machine, a loopback or an embedded IPv4 address",
            "of no machine, a loopback or an embedded IPv4 address"}}) {
    auto const value = *Wire::IpGenAddrWithMask::fromString(address);
    EXPECT_EQ(Grammar::portAddressFault(value), port) << address;
    EXPECT_EQ(value.isV6() ? Grammar::hostFault(value.v6().address) : Grammar::hostFault(value.v4().address),
              host)
        << address;
  }
  for (auto const& [prefix, good] : std::vector<std::pair<char const*, bool>>{{"0.0.0.0/0", true},
                                                                              {"0.0.0.0/1", true},
                                                                              {"0.0.0.0/8", false},
                                                                              {"10.1.2.3/16", true},
                                                                              {"127.0.0.0/8", false}})
    EXPECT_EQ(Grammar::prefixFault(*Wire::IpAddrWithMask::fromString(prefix)).empty(), good) << prefix;
}

}  // namespace
