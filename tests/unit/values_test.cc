// The network value types: every text that is accepted comes back, everything else is refused. The same
// table shows which URL a boot file makes, and what is shown of a URL that holds a password.
#include <gtest/gtest.h>

#include <map>

#include "platform/model/values/Grammar.h"
#include "platform/model/values/Names.h"
#include "platform/model/values/Wire.h"
#include "tests/unit/support/Transcript.h"
#include "zerotouch/fetch/BootFile.h"

namespace {

using namespace std::string_view_literals;

template <typename T>
std::string parsed(std::string_view text) {
  auto const value = T::fromString(text);
  return value ? value->stringValue() : "refused";
}

std::string name(std::string_view text) {
  return Grammar::nameFault(text).empty() ? std::string(text) : "refused";
}
std::string prefix(std::string_view text) {
  return Grammar::prefixFault(*Wire::IpAddrWithMask::fromString(text)).empty() ? std::string(text)
                                                                               : "refused";
}
std::string portAddress(std::string_view text) {
  return Grammar::portAddressFault(*Wire::IpGenAddrWithMask::fromString(text));
}
std::string host(std::string_view text) {
  auto const value = *Wire::IpGenAddrWithMask::fromString(text);
  return value.isV6() ? Grammar::hostFault(value.v6().address) : Grammar::hostFault(value.v4().address);
}

// Of a server's name, which may be empty, and a boot file.
std::string bootFile(std::string_view text) {
  std::size_t const blank = text.find(' ');
  auto const file =
      ZeroTouch::bootFile(std::string(text.substr(0, blank)), std::string(text.substr(blank + 1)));
  return file.objection.empty() ? file.url + " " + file.scheme : "none" + file.url;
}
std::string withoutPasswords(std::string_view text) { return Grammar::withoutPasswords(std::string(text)); }

std::map<std::string, std::string (*)(std::string_view)> const readers = {
    {"IntfId", parsed<Wire::IntfId>},
    {"EthAddr", parsed<Wire::EthAddr>},
    {"IpAddr", parsed<Wire::IpAddr>},
    {"Ip6Addr", parsed<Wire::Ip6Addr>},
    {"IpGenAddr", parsed<Wire::IpGenAddr>},
    {"IpAddrWithMask", parsed<Wire::IpAddrWithMask>},
    {"Ip6AddrWithMask", parsed<Wire::Ip6AddrWithMask>},
    {"IpGenAddrWithMask", parsed<Wire::IpGenAddrWithMask>},
    {"VrfName", parsed<L3::VrfName>},
    {"Via", parsed<Routing::Via>},
    {"name", name},
    {"prefix", prefix},
    {"portAddress", portAddress},
    {"host", host},
    {"bootFile", bootFile},
    {"withoutPasswords", withoutPasswords},
};

TEST(Values, come_back_as_they_are_written_or_are_refused) {
  for (auto const& [asked, answer] : transcript("values.txt")) {
    std::string const reader = asked.substr(0, asked.find(' '));
    EXPECT_EQ(readers.at(reader)(asked.substr(reader.size() + 1)) + "\n", answer) << asked;
  }
  EXPECT_EQ(parsed<Wire::IpAddr>("10.0.0.1\0.evil"sv), "refused");
  EXPECT_EQ(parsed<Wire::Ip6Addr>("::1\0"sv), "refused");
  EXPECT_EQ(parsed<Wire::IntfId>(""), "refused");
  for (auto const text : {""sv, "a\nb"sv, "a\0"sv}) EXPECT_NE(Grammar::nameFault(text), "") << text;
}

TEST(Values, are_ordered_by_their_number_not_their_text) {
  EXPECT_LT(Wire::IpGenAddr(), *Wire::IpGenAddr::fromString("10.0.0.1"));
  EXPECT_LT(*Wire::IpAddr::fromString("9.0.0.0"), *Wire::IpAddr::fromString("10.0.0.0"));
}

}  // namespace
