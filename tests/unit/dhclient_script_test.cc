// What the DHCP client's variables become in the state tree. The answers are as the real client handed them
// to its script; the hostile ones are such an answer with some variables changed.
#include <gmock/gmock.h>

#include "platform/statebase/Connection.h"
#include "platform/statebase/Rpc.h"
#include "programs/zerotouch-dhclient-script/Dhcpcd.h"
#include "programs/zerotouch-dhclient-script/Message.h"
#include "tests/unit/StatebaseFixture.h"

namespace {

using Hook::Environment;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Environment read(std::string const& variables) {
  Environment result;
  std::istringstream lines(variables);
  for (std::string line; std::getline(lines, line);)
    result[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
  return result;
}

auto const answers = transcript("dhclient_answers.txt");
Environment const bound = read(answers[0].second), bound6 = read(answers[1].second);

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
  for (auto const& [record, variables] : answers) {
    Environment const environment = read(variables);
    EXPECT_EQ(recorded(environment), std::pair(record, Complaints()));
    Hook::Complaints none;
    Kel::Value const params = Hook::messageFor(environment, none)->params;
    EXPECT_EQ(Statebase::member(params, "attributes")->as<Kel::ValueMap>()->back().first, "bootFileName");
  }
}

TEST(DhclientScript, AnAnswerOfDhcpcdBecomesTheSameRecord) {
  for (auto const& [record, variables] : transcript("dhcpcd_answers.txt"))
    EXPECT_EQ(recorded(Hook::fromDhcpcd(read(variables))), std::pair(record, Complaints())) << variables;
}

// Only what the ISC client would report too has an effect: that dhcpcd starts and stops has none.
TEST(DhclientScript, ReasonsOfDhcpcdHaveTheEffectOfThoseOfTheOtherClient) {
  for (auto const& [reason, method] : Environment{{"REBOOT", "set"},
                                                  {"NAK", "delete"},
                                                  {"EXPIRE6", "delete"},
                                                  {"FAIL", "set"},
                                                  {"RELEASE", "delete"},
                                                  {"STOP", ""},
                                                  {"STOPPED", ""},
                                                  {"PREINIT", ""},
                                                  {"TIMEOUT", ""},
                                                  {"STOP6", ""},
                                                  {"ROUTERADVERT", ""},
                                                  {"CLEANUP", ""}}) {
    Hook::Complaints none;
    auto const message = Hook::messageFor(Hook::fromDhcpcd({{"reason", reason}, {"interface", "e0"}}), none);
    EXPECT_EQ(message ? message->method : "", method) << reason;
  }
}

TEST(DhclientScript, EachReasonHasItsEffect) {
  auto const summary = [](ZeroTouch::DhcpStatus const& status) {
    std::string text;
    for (auto const* const records : {&status.intfDhcpStatus(), &status.intfDhcp6Status()}) {
      for (auto const& [name, record] : *records) {
        text += (text.empty() ? "" : " ") + name + "=" + record->reason() +
                (record->nameServer().empty() ? "" : "+");
      }
    }
    return text + "\n";
  };
  for (auto const& [reason, expected] : transcript("dhclient_reasons.txt")) {
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

// That a release takes the record, the lab shows; that any record is whole, a fuzz target.
TEST(DhclientScript, ALeaseThatCannotBeReleasedIsNotWrittenDown) {
  Environment const environment =
      with(bound, {{"new_dhcp_server_identifier", "10.9.0.1"}, {"new_expiry", "1795267291"}});
  EXPECT_NE(Hook::leaseRecord(environment), "");
  for (auto const& [name, value] :
       Environment{{"reason", "BOUND6"}, {"new_expiry", "1; }"}, {"interface", "e\"1"}})
    EXPECT_EQ(Hook::leaseRecord(with(environment, {{name, value}})), "") << name;
}

// One attribute of an otherwise good answer is left out or takes another value, and that is complained of.
TEST(DhclientScript, BadValuesAreDroppedAndTheRestCounts) {
  auto cases = transcript("dhclient_values.txt");
  cases.emplace_back("bootfile_name=a\nb\x1b[2J", "bootFileName \"/bootp\"\n\"a?b?[2J\": something else\n");
  cases.emplace_back("bootfile_name=" + std::string(4097, 'x'),
                     "bootFileName \"/bootp\"\nlonger than 4096\n");
  Kel::Value const before = Statebase::parseJson(recorded(bound).first);
  Kel::Value const before6 = Statebase::parseJson(recorded(bound6).first);
  for (auto const& [asked, outcome] : cases) {
    SCOPED_TRACE(asked);
    std::size_t const equals = asked.find('='), blank = outcome.find(' '), end = outcome.find('\n');
    std::string const name = "new_" + asked.substr(0, equals), attribute = outcome.substr(0, blank);
    std::string const expected = outcome.substr(blank + 1, end - blank - 1);
    std::string const complaint =
        end + 1 < outcome.size() ? outcome.substr(end + 1, outcome.size() - end - 2) : "";
    bool const six = bound6.contains(name);
    auto const [record, complaints] =
        recorded(with(six ? bound6 : bound, {{name, asked.substr(equals + 1)}}));
    Kel::Value const after = Statebase::parseJson(record);
    bool const ofRoutes = name.starts_with("new_rfc3442");
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
