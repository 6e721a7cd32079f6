// The messages of a rehearsal: questions as the real client has sent them, and what becomes of answers. That
// it asks with the bytes of the client that is installed is shown in the lab.
#include <gmock/gmock.h>

#include "programs/zerotouch/rehearse/Frames.h"
#include "programs/zerotouch/rehearse/Rehearsal.h"

namespace {

using namespace Rehearsal;
using testing::HasSubstr;
using Options = std::vector<std::pair<unsigned, std::string>>;

constexpr Wire::EthAddr system{{2, 0, 0, 0, 0, 1}}, port{{2, 0, 0, 1, 0, 1}};
constexpr Asking asking{.transaction = 0x010203, .port = port};

Question question(bool six) {
  EntityMib::Fru chassis;
  chassis.modelNameIs("LAB-SWITCH");
  chassis.serialNumIs("LAB0001");
  std::string const name = std::string("/share/zerotouch-dhclient") + (six ? "6.conf" : ".conf");
  return questionOf(system, chassis, PROJECT_FOLDER + name, six);
}

std::string plain(std::string text) {
  std::erase(text, ':');
  return text;
}

TEST(Rehearsal, asks_as_the_client_does) {
  std::string const discovered = plain(octets(discover(question(false), asking)));
  EXPECT_EQ(discovered.substr(0, 16 * 2), "01010600000102030000000000000000");
  EXPECT_EQ(discovered.substr(236 * 2),
            "63825363350101370b0143427921031a060f0c073c194f737472656c3b4c41422d5357495443483b4c4142303030313d"
            "06020000000001"
            "ff0000000000000000");
  std::string const common =
      "0011002100007ed9000100194f737472656c3b4c41422d5357495443483b4c4142303030310001000a00030001020000000001"
      "0006000c"
      "003b001700180052005300200008000200";
  EXPECT_EQ(plain(octets(solicit(question(true), asking))),
            "01010203" + common + "000003000c0001000100000e1000001518");
  Asking later = asking;
  later.seconds = 0.93;
  EXPECT_EQ(plain(octets(informationRequest(question(true), later))), "0b010203" + common + "5d");
}

TEST(Rehearsal, names_the_statement_of_the_client_that_it_cannot_follow) {
  for (auto const& [text, message] : std::initializer_list<std::pair<char const*, char const*>>{
           {"request subnet-mask, nonsense;", "the option nonsense is unknown"},
           {"send host-name \"x;", "a text without its end"},
           {"send dhcp-client-identifier 02:zz;", "no octets in hexadecimal"}}) {
    try {
      questionOf(text, false);
      ADD_FAILURE() << text;
    } catch (BadConfiguration const& error) {
      EXPECT_THAT(error.what(), HasSubstr(message));
    }
  }
  EXPECT_EQ(questionOf("# send host-name \"no\";\nsend host-name \"a\\\"b\\101;#\";", false).sent.at(12),
            (Bytes{'a', '"', 'b', 'A', ';', '#'}));
}

// Options of DHCPv4 have a byte each for code and length, those of DHCPv6 two.
Bytes encoded(Options const& options, bool six) {
  Bytes result;
  for (auto const& [code, value] : options) {
    append(result, code, six ? 2 : 1);
    append(result, static_cast<std::uint32_t>(value.size()), six ? 2 : 1);
    result.insert(result.end(), value.begin(), value.end());
  }
  return result;
}

Bytes offer(Options const& options, std::string const& file = "") {
  Bytes message(236);
  message[0] = 2;
  std::ranges::copy(Bytes{0, 1, 2, 3}, &message[4]);
  std::ranges::copy(Bytes{10, 0, 1, 100}, &message[16]);
  std::ranges::copy(port.bytes, &message[28]);
  std::ranges::copy(file, &message[108]);
  append(message, 0x63825363, 4);
  auto const tail = encoded(options, false);
  message.insert(message.end(), tail.begin(), tail.end());
  message.push_back(255);
  return message;
}

// What a switch makes of an offer: the URL, or why it is not taken.
std::string madeOf(Bytes const& message) {
  auto answer = readOffer(message, asking);
  if (!answer) return "no answer";
  Hearing hearing;
  hearing.offers.emplace_back().answer = std::move(*answer);
  auto const* const chosen = choose(hearing, "et1");
  return chosen != nullptr ? chosen->file.url : hearing.offers.front().because;
}

TEST(Rehearsal, makes_of_an_offer_what_the_switch_does) {
  std::string const type(1, 2), server("\x0a\0\1\1", 4), url = "http://10.0.1.1/boot";
  std::string const overloaded = std::string("\x43\x14") + url + "\xff";
  Bytes cut = offer({{53, type}, {67, url}});
  cut.resize(cut.size() - 3);
  Bytes strange = offer({{53, type}, {67, url}});
  strange[7] = 9;
  for (auto const& [message, expected] : std::initializer_list<std::pair<Bytes, std::string>>{
           {offer({{53, type}, {54, server}, {67, url}}), url},
           {offer({{53, type}, {67, "http://"}, {67, "10.0.1.1/boot"}}), url},
           {offer({{53, type}, {67, url + '\0'}}), url},
           {offer({{53, type}, {52, "\1"}}, overloaded), url},
           {offer({{53, type}, {66, "10.0.1.1"}}, "file"), "tftp://10.0.1.1/file"},
           {offer({{53, type}, {67, "http://h/\x1b[2J"}}), "it names no boot file"},
           {offer({{53, type}}), "it names no boot file"},
           {offer({{53, "\5"}, {67, url}}), "no answer"},
           {strange, "no answer"},
           {cut, "its options are malformed"},
           {{}, "no answer"}})
    EXPECT_EQ(madeOf(message), expected);
}

TEST(Rehearsal, answers_who_asks_for_the_address_of_its_port) {
  auto const frame = routerSolicitation(port);
  EXPECT_EQ(plain(octets(frame)),
            "33330000000202000001000186dd6000000000103afffe80000000000000000000fffe010001ff020000000000000000"
            "00000000"
            "000285007b2a000000000101020000010001");
  EXPECT_EQ(linkLocal(port).stringValue(), "fe80::ff:fe01:1");
}

}  // namespace
