// What the DHCP client's variables become in the state tree. The answers are as the real client handed them
// to its script; the hostile ones are such an answer with some variables changed.
#include <gmock/gmock.h>

#include "platform/statebase/Connection.h"
#include "platform/statebase/Rpc.h"
#include "programs/zerotouch-dhclient-script/Message.h"
#include "tests/unit/StatebaseFixture.h"

namespace {

using Hook::Environment;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Environment const bound = {
    {"reason", "BOUND"},
    {"interface", "e0"},
    {"new_bootfile_name", R"(http://10.9.0.1/cfg?a=1\&b=2\'\"\\\$\`\|;~)"},
    {"new_domain_name", "example.com"},
    {"new_domain_name_servers", "8.8.8.8 9.9.9.9"},
    {"new_filename", "/bootp"},
    {"new_host_name", "host-a"},
    {"new_interface_mtu", "1400"},
    {"new_ip_address", "10.9.0.50"},
    {"new_log_servers", "10.9.0.7"},
    {"new_rfc3442_classless_static_routes", "24 10 1 2 10 9 0 1 0 10 9 0 9 20 172 16 31 10 9 0 2"},
    {"new_routers", "10.9.0.1 10.9.0.2"},
    {"new_static_routes", "10.0.0.0 10.9.0.3 192.168.7.1 10.9.0.4 0.0.0.0 10.9.0.5"},
    {"new_subnet_mask", "255.255.255.0"},
    {"new_tftp_server_name", "tftp.example.com"},
};

Environment const bound6 = {
    {"reason", "BOUND6"},
    {"interface", "e0"},
    {"new_dhcp6_bootfile_url", R"(http://[fd00:9::1]/cfg?a=1\&b=\'2\')"},
    {"new_dhcp6_domain_search", "example.com. b.example.org."},
    {"new_dhcp6_name_servers", "fd00:9::1 fd00:9::2"},
    {"new_ip6_address", "fd00:9::1c9"},
    {"new_ip6_prefixlen", "128"},
};

Environment with(Environment environment, Environment const& changes) {
  for (auto const& [name, value] : changes) environment[name] = value;
  return environment;
}

struct Host : Statebase::RpcSession {
  Statebase::Role role() const override { return Statebase::Role::root; }
  void watch(std::vector<std::string> const&) override {}
  bool unwatch(std::string const&) override { return false; }
};

using Complaints = std::vector<std::string>;

// Hands the message to the state tree, as a request, so that a refusal shows; the complaints.
Complaints run(Environment const& environment, Statebase::testing::TestTree& tree) {
  Hook::Complaints complaints;
  if (auto const message = Hook::messageFor(environment, complaints)) {
    Host host;
    std::string const line = Statebase::dumpJson(Kel::ValueMap{{"jsonrpc", "2.0"},
                                                               {"id", std::uint64_t{1}},
                                                               {"method", message->method},
                                                               {"params", message->params}});
    EXPECT_LT(line.size(), Statebase::Connection::maxLine);
    EXPECT_THAT(Statebase::rpcAnswer(tree.tree, host, line), HasSubstr(R"("result":true)"));
  }
  return complaints.lines();
}

// The record that an answer leads to, as JSON, and the complaints.
std::pair<std::string, Complaints> recorded(Environment const& environment) {
  Statebase::testing::TestTree tree;
  auto const lines = run(environment, tree);
  std::string const name = environment.at("reason").ends_with('6') ? "intfDhcp6Status" : "intfDhcpStatus";
  return {Statebase::dumpJson(tree.tree.get("/zerotouch/dhcpStatus/" + name + "/e0")), lines};
}

TEST(DhclientScript, AnAnswerBecomesARecord) {
  for (auto const& [environment, record] : std::vector<std::pair<Environment, std::string>>{
           {bound,
            R"({"reason":"BOUND","bootFileName":"http://10.9.0.1/cfg?a=1&b=2'\"\\$`|;~",)"
            R"("addrWithMask":"10.9.0.50/24","mtu":1400,)"
            R"("staticRoute":{"0":{"prefix":"10.1.2.0/24","nextHop":"10.9.0.1"},)"
            R"("1":{"prefix":"172.16.16.0/20","nextHop":"10.9.0.2"}},"gateway":{"0":"10.9.0.9"},)"
            R"("hostname":"host-a","nameServer":{"0":"8.8.8.8","1":"9.9.9.9"},"domainName":"example.com",)"
            R"("serverName":"tftp.example.com","loggingHost":{"10.9.0.7":{"host":"10.9.0.7","port":514}}})"},
           {bound6,
            R"({"reason":"BOUND6","bootFileName":"http://[fd00:9::1]/cfg?a=1&b='2'",)"
            R"("addrWithMask":"fd00:9::1c9/128","mtu":0,"staticRoute":{},"gateway":{},"hostname":"",)"
            R"("nameServer":{"0":"fd00:9::1","1":"fd00:9::2"},"domainName":"example.com","serverName":"",)"
            R"("loggingHost":{}})"}}) {
    EXPECT_EQ(recorded(environment), std::pair(record, Complaints()));
    Hook::Complaints none;
    Kel::Value const params = Hook::messageFor(environment, none)->params;
    EXPECT_EQ(Statebase::member(params, "attributes")->as<Kel::ValueMap>()->back().first, "bootFileName");
  }
}

TEST(DhclientScript, EachReasonHasItsEffect) {
  // "+" for a record that holds more than its reason.
  auto const summary = [](ZeroTouch::DhcpStatus const& status) {
    std::string text;
    for (auto const* const records : {&status.intfDhcpStatus(), &status.intfDhcp6Status()}) {
      for (auto const& [name, record] : *records) {
        text += name + "=" + record->reason() + (record->nameServer().empty() ? " " : "+ ");
      }
    }
    return text;
  };
  std::string const e0 = "e0=BOUND+ ", e1 = "e1=FAIL ", e06 = "e0=BOUND6+ ";
  for (auto const& [reasons, expected] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"PREINIT", "PREINIT6", "MEDIUM", "DEPREF6", "none such"}, e0 + e1 + e06},
           {{"REBOOT"}, "e0=REBOOT+ " + e1 + e06},
           {{"RENEW"}, "e0=RENEW+ " + e1 + e06},
           {{"REBIND"}, "e0=REBIND+ " + e1 + e06},
           {{"FAIL"}, "e0=FAIL " + e1 + e06},
           {{"TIMEOUT"}, "e0=TIMEOUT " + e1 + e06},
           {{"EXPIRE", "RELEASE", "STOP"}, e1 + e06},
           {{"CLEANUP"}, e06},
           {{"RENEW6"}, e0 + e1 + "e0=RENEW6+ "},
           {{"REBIND6"}, e0 + e1 + "e0=REBIND6+ "},
           {{"EXPIRE6", "RELEASE6", "STOP6", "CLEANUP6"}, e0 + e1}}) {
    for (auto const& reason : reasons) {
      Statebase::testing::TestTree tree;
      run(bound, tree);
      run(bound6, tree);
      run(with(bound, {{"reason", "FAIL"}, {"interface", "e1"}}), tree);
      // The last attempt's lease comes with a TIMEOUT too.
      Environment environment = with(reason.ends_with('6') ? bound6 : bound, {{"reason", reason}});
      if (reason.starts_with("CLEANUP")) environment.erase("interface");
      EXPECT_THAT(run(environment, tree), IsEmpty());
      EXPECT_EQ(summary(*tree.dhcpStatus), expected) << reason;
    }
  }
}

TEST(DhclientScript, TheLeaseIsWrittenDownForTheRelease) {
  Environment const environment = with(bound, {{"interface", "et1"},
                                               {"new_ip_address", "10.0.1.5"},
                                               {"new_dhcp_server_identifier", "10.0.1.1"},
                                               {"new_expiry", "1795267291"}});
  EXPECT_EQ(
      Hook::leaseRecord(environment),
      "lease {\n  interface \"et1\";\n  fixed-address 10.0.1.5;\n  option dhcp-server-identifier 10.0.1.1;\n"
      "  renew epoch 1795267291;\n  rebind epoch 1795267291;\n  expire epoch 1795267291;\n}\n");
  for (auto const& [name, value] :
       Environment{{"reason", "BOUND6"}, {"new_expiry", "1; }"}, {"interface", "e\"1"}})
    EXPECT_EQ(Hook::leaseRecord(with(environment, {{name, value}})), "") << name;
}

TEST(DhclientScript, WithoutUsableClasslessRoutesTheOthersCount) {
  for (char const* classless :
       {"", "24 10 1 2 10", "33 1 2 3 4 5 6 7 8 9", "24 10 1 2 0 0 0 0", "256", "x"}) {
    auto const [record, complaints] =
        recorded(with(bound, {{"new_rfc3442_classless_static_routes", classless}}));
    EXPECT_THAT(record, HasSubstr(R"("staticRoute":{"0":{"prefix":"10.0.0.0/8","nextHop":"10.9.0.3"},)"
                                  R"("1":{"prefix":"192.168.7.1/32","nextHop":"10.9.0.4"}},)"
                                  R"("gateway":{"0":"10.9.0.1","1":"10.9.0.2","2":"10.9.0.5"})"))
        << classless;
    EXPECT_EQ(complaints.size(), *classless != '\0' ? 1 : 0) << classless;
  }
}

std::string times(std::size_t count, std::string const& text) {
  std::string result;
  while (count-- > 0) result += text;
  return result;
}

// One attribute of an otherwise good answer is left out or takes another value, and that is complained of.
TEST(DhclientScript, BadValuesAreDroppedAndTheRestCounts) {
  std::string const longName = times(127, "a.") + "a";  // 255 bytes
  std::string const url4k = "http://h/" + std::string(4096 - 9, 'x');
  struct {
    char const* variable;
    std::string value;
    char const* attribute;
    std::string expected;   // JSON
    std::string complaint;  // empty for none
  } const cases[] = {
      {"bootfile_name", "", "bootFileName", R"("/bootp")", ""},
      {"bootfile_name", R"(cfg\000\000)", "bootFileName", R"("cfg")", ""},
      {"bootfile_name", R"(a\\101\\)", "bootFileName", R"("a\\101\\")", ""},
      {"bootfile_name", url4k, "bootFileName", "\"" + url4k + "\"", ""},
      {"bootfile_name", url4k + "x", "bootFileName", R"("/bootp")", "longer than 4096 bytes"},
      {"bootfile_name", R"(a\012b)", "bootFileName", R"("/bootp")",
       R"(bootfile-name: "a?b": something else)"},
      {"bootfile_name", "a\nb\x1b[2J", "bootFileName", R"("/bootp")", R"("a?b?[2J": something else)"},
      {"bootfile_name", R"(a\000b)", "bootFileName", R"("/bootp")", "printable"},
      {"bootfile_name", R"(\303\251\377)", "bootFileName", R"("/bootp")", "printable"},
      {"host_name", R"(a\;reboot)", "hostname", R"("")", R"("a;reboot": something else than letters)"},
      {"host_name", longName, "hostname", R"("")", "longer than 253"},
      {"domain_name", "a..b", "domainName", R"("")", "empty label"},
      {"tftp_server_name", R"(\001\177q)", "serverName", R"("")", R"(tftp-server-name: "??q": )"},
      {"interface_mtu", "67", "mtu", "0", "68 to 65535"},
      {"interface_mtu", "68", "mtu", "68", ""},
      {"interface_mtu", "70000", "mtu", "0", "68 to 65535"},
      {"interface_mtu", "1400x", "mtu", "0", "68 to 65535"},
      {"ip_address", "255.255.255.255", "addrWithMask", R"("0.0.0.0/0")", "broadcast"},
      {"ip_address", "10.9.0", "addrWithMask", R"("0.0.0.0/0")", "no IPv4 address"},
      {"ip_address", "", "addrWithMask", R"("0.0.0.0/0")", ""},
      {"subnet_mask", "255.255.255.255", "addrWithMask", R"("10.9.0.50/32")", ""},
      {"subnet_mask", "255.0.255.0", "addrWithMask", R"("10.9.0.50/8")", "no mask"},
      {"subnet_mask", "0.0.0.0", "addrWithMask", R"("10.9.0.50/8")", "no mask"},
      {"subnet_mask", "", "addrWithMask", R"("10.9.0.50/8")", ""},
      {"domain_name_servers", "127.0.0.1 8.8.8.8 x", "nameServer", R"({"0":"8.8.8.8"})",
       R"("127.0.0.1": a loopback)"},
      {"domain_name_servers", times(40, "8.8.8.8 "), "nameServer",
       R"({"0":"8.8.8.8","1":"8.8.8.8","2":"8.8.8.8","3":"8.8.8.8","4":"8.8.8.8","5":"8.8.8.8",)"
       R"("6":"8.8.8.8","7":"8.8.8.8"})",
       "has 40 entries: only the first 8"},
      {"log_servers", "255.255.255.255", "loggingHost", "{}", "log-servers"},
      {"rfc3442_classless_static_routes", "32 1 2 3 4 10 9 0 1 0 10 9 0 9 24 1 2", "staticRoute",
       R"({"0":{"prefix":"1.2.3.4/32","nextHop":"10.9.0.1"}})", "malformed after 2 usable"},
      {"rfc3442_classless_static_routes", "0 10 9 0 9 8 10 224 0 0 1", "staticRoute", "{}",
       R"("10.0.0.0/8 by 224.0.0.1": the next hop is a multicast)"},
      {"rfc3442_classless_static_routes", "8 7 10 9 0 1", "gateway", "{}", ""},
      {"ip6_address", "ff02::1", "addrWithMask", R"("0.0.0.0/0")", "multicast"},
      {"ip6_address", "", "addrWithMask", R"("0.0.0.0/0")", ""},
      {"ip6_prefixlen", "129", "addrWithMask", R"("0.0.0.0/0")", "129"},
      {"dhcp6_name_servers", "fe80::1 fd00::2", "nameServer", R"({"0":"fd00::2"})", "fe80::1"},
      {"dhcp6_domain_search", R"(a\098c.com. b.com.)", "domainName", R"("")", "a"},
      {"dhcp6_bootfile_url", R"(http://h/\033)", "bootFileName", R"("")", "printable"},
  };
  Kel::Value const before = Statebase::parseJson(recorded(bound).first);
  Kel::Value const before6 = Statebase::parseJson(recorded(bound6).first);
  for (auto const& [variable, value, attribute, expected, complaint] : cases) {
    SCOPED_TRACE(std::string(variable) + " " + value);
    std::string const name = std::string("new_") + variable;
    bool const six = bound6.contains(name);
    auto const [record, complaints] = recorded(with(six ? bound6 : bound, {{name, value}}));
    Kel::Value const after = Statebase::parseJson(record);
    bool const ofRoutes = std::string_view(variable).starts_with("rfc3442");
    for (auto const& [other, old] : *(six ? before6 : before).as<Kel::ValueMap>()) {
      if (other != attribute && ofRoutes && (other == "gateway" || other == "staticRoute")) continue;
      EXPECT_EQ(Statebase::dumpJson(*Statebase::member(after, other)),
                other == attribute ? expected : Statebase::dumpJson(old));
    }
    EXPECT_EQ(complaints.empty(), complaint.empty());
    if (!complaint.empty()) {
      EXPECT_THAT(complaints, testing::Contains(HasSubstr(complaint)));
      EXPECT_THAT(complaints, testing::Each(testing::StartsWith("e0: ")));
    }
  }
}

// Whatever an answer holds, the message fits into one line of the socket; run() checks that.
TEST(DhclientScript, TheLongestAnswerFitsIntoALine) {
  Statebase::testing::TestTree tree;
  run(with(bound,
           {{"interface", "abcdefghijklmn~"},
            {"new_bootfile_name", times(4096, R"(\\)")},
            {"new_rfc3442_classless_static_routes", times(1000, "32 210 210 210 210 210 210 210 210 ")}}),
      tree);
  auto const& result = *tree.dhcpStatus->intfDhcpStatus("abcdefghijklmn~");
  EXPECT_EQ(result.bootFileName().size(), 4096);
  EXPECT_EQ(result.staticRoute().size(), 128);
}

TEST(DhclientScript, WithoutAReasonOrADeviceNothingIsSent) {
  for (Environment const& changes :
       {Environment{{"reason", ""}}, Environment{{"interface", ""}}, Environment{{"interface", "a/b"}},
        Environment{{"interface", ".."}}, Environment{{"interface", "abcdefghijklmnop"}}}) {
    Hook::Complaints complaints;
    EXPECT_FALSE(Hook::messageFor(with(bound, changes), complaints));
    EXPECT_THAT(complaints.lines(), ElementsAre(HasSubstr(changes.begin()->first)));
  }
}

}  // namespace
