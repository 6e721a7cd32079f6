// What requests read from and write to the state tree, without a socket.
#include "platform/statebase/InitialValues.h"
#include "platform/statebase/Rpc.h"
#include "tests/unit/StatebaseFixture.h"

namespace Statebase::testing {

namespace {

using Kel::Value;

class StateTree : public ::testing::Test, protected TestTree, private RpcSession {
 protected:
  // The answer's result, or its error as "code path: reason".
  std::string request(std::string const& method, std::string const& params, Role role = Role::host) {
    return answerTo(R"({"jsonrpc": "2.0", "id": 7, "method": ")" + method + R"(", "params": )" + params + "}",
                    role);
  }

  std::string answerTo(std::string const& line, Role role = Role::host) {
    role_ = role;
    std::string const text = rpcAnswer(tree, *this, line);
    if (text.empty()) return "";
    Value const answer = parseJson(text);
    Value const* const error = member(answer, "error");
    if (error == nullptr) return dumpJson(*member(answer, "result"));
    std::string const path = *member(*member(*error, "data"), "path")->as<std::string>();
    std::string const reason = *member(*member(*error, "data"), "reason")->as<std::string>();
    EXPECT_EQ(*member(*error, "message"), Value(path.empty() ? reason : path + ": " + reason));
    return dumpJson(*member(*error, "code")) + " " + (path.empty() ? "" : path + ": ") + reason;
  }

  std::string set(std::string const& params, Role role = Role::host) { return request("set", params, role); }
  std::string del(std::string const& path, Role role = Role::host) {
    return request("delete", R"({"path": ")" + path + "\"}", role);
  }

 private:
  Role role() const override { return role_; }
  void watch(std::vector<std::string> const&) override {}
  bool unwatch(std::string const&) override { return false; }

  Kel::testing::SimulatedTime time_{1'700'000'000};
  Role role_ = Role::none;
};

// Notes the changes of an entity in their order.
struct Recorder : Kel::Watcher {
  explicit Recorder(Kel::Ptr<Kel::Entity const> e) : entity(std::move(e)) { entity->watcherIs(this); }
  ~Recorder() override { entity->watcherDel(this); }
  void onChange(Kel::Entity const&, std::string_view attribute, std::string_view key) override {
    changes.push_back(std::string(attribute) + (key.empty() ? "" : "=" + std::string(key)));
  }
  Kel::Ptr<Kel::Entity const> entity;
  std::vector<std::string> changes;
};

}  // namespace

TEST_F(StateTree, AnswersAreThoseWrittenDownAndNeitherReadsNorMistakesChangeAnything) {
  entityMib->rootIs()->modelNameIs("S1\x01\xff");
  dhcpStatus->intfDhcpStatusIs("et1")->nameServerIs(3, *Wire::IpGenAddr::fromString("10.0.0.1"));
  std::string const before = dump();
  for (auto const& [asked, answer] : transcript("requests.txt")) {
    std::size_t const blank = asked.find(' ');
    std::string const method = asked.substr(0, blank), rest = asked.substr(blank + 1);
    std::string const got = method == "line" ? answerTo(rest) : request(method, rest);
    EXPECT_EQ(got.empty() ? got : got + "\n", answer) << asked;
    EXPECT_EQ(dump(), before) << asked;
  }
  EXPECT_TRUE(answerTo("").starts_with("-32700 not JSON: syntax error while parsing value"));
  EXPECT_EQ(answerTo(std::string(40'000, '[')), "-32700 not JSON: nested deeper than 32 levels");
  using namespace std::string_literals;
  EXPECT_EQ(answerTo("{\"jsonrpc\": \"2.0\", \"id\": 1, \"method\": \"time\"}"s + '\0' + "more"),
            "-32700 not JSON: byte 46 is zero, which no JSON text holds");
}

TEST_F(StateTree, OneMessageCreatesTheEntryThenSetsInTheOrderGiven) {
  Recorder const directory(dhcpStatus);
  EXPECT_EQ(set(R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1"})"), "true");
  auto const entry = dhcpStatus->intfDhcpStatus("et1");
  Recorder const recorder(entry);
  EXPECT_EQ(set(R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1", "attributes": {
                "reason": "BOUND", "nameServer": {"1": "10.0.0.2", "0": "2001:db8::1"}, "mtu": 1400,
                "staticRoute": {"0": {"prefix": "10.0.0.0/8", "nextHop": "10.0.0.1"}},
                "bootFileName": "http://server/boot"}})"),
            "true");
  EXPECT_EQ(recorder.changes, (std::vector<std::string>{"reason", "nameServer=1", "nameServer=0", "mtu",
                                                        "staticRoute=0", "bootFileName"}));
  EXPECT_EQ(entry->staticRoute(0).nextHop.stringValue(), "10.0.0.1");
  EXPECT_EQ(set(R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1", "replace": true,
                    "attributes": {"mtu": 65535}})"),
            "true");
  EXPECT_EQ(directory.changes, std::vector<std::string>(3, "intfDhcpStatus=et1"));
  EXPECT_EQ(dhcpStatus->intfDhcpStatus("et1")->mtu(), 65535U);
  EXPECT_EQ(dhcpStatus->intfDhcpStatus("et1")->reason(), "");
  EXPECT_EQ(entry->mtu(), 1400U);
}

TEST_F(StateTree, DeleteTakesEntriesWholeCollectionsAndOptionalEntities) {
  entityMib->rootIs();
  for (char const* name : {"et1", "et2", "et3"}) dhcpStatus->intfDhcpStatusIs(name);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(del("/zerotouch/dhcpStatus/intfDhcpStatus/et2"), "true");
  EXPECT_EQ(dhcpStatus->intfDhcpStatus().keys(), (std::vector<Kel::Name>{"et1", "et3"}));
  EXPECT_EQ(del("/zerotouch/dhcpStatus/intfDhcpStatus"), "true");
  EXPECT_TRUE(dhcpStatus->intfDhcpStatus().empty());
  EXPECT_EQ(del("/entityMib/status/root"), "true");
  EXPECT_FALSE(entityMib->root());
}

TEST_F(StateTree, RolesDecideWhoMayWrite) {
  std::string const before = dump();
  std::string const whole = "/zerotouch/config", enabled = whole + "/enabled",
                    et1 = "/zerotouch/dhcpStatus/intfDhcpStatus/et1", root = "/entityMib/status/root";
  struct {
    std::string path;
    char const *parameters, *none, *group, *root;  // what each role is answered
  } const cases[] = {
      {enabled, R"(, "value": true)", ": it is read-only", "true", "true"},
      {et1, "", ": it is read-only", ": only root may write it", "true"},
      {root, "", ": it is read-only", ": it is read-only", ": it is read-only"},
  };
  auto const answer = [](std::string const& path, char const* text) {
    return *text == ':' ? "-32003 " + path + text : text;
  };
  for (auto const& c : cases) {
    for (auto const& [role, text] : std::initializer_list<std::pair<Role, char const*>>{
             {Role::none, c.none}, {Role::group, c.group}, {Role::root, c.root}, {Role::host, "true"}}) {
      EXPECT_EQ(set(R"({"path": ")" + c.path + "\"" + c.parameters + "}", role), answer(c.path, text));
      EXPECT_EQ(dump() != before, *text != ':') << c.path;
      if (c.path != enabled) {
        EXPECT_EQ(del(c.path, role), answer(c.path, text));
      }
      config->enabledIs(false);
      EXPECT_EQ(dump(), before) << c.path;
    }
  }
  for (auto const& [path, value] : {std::pair(whole + "/installMode", "511"),
                                    std::pair(whole, R"({"enabled": true, "installMode": 511})")}) {
    std::string const parameters = R"({"path": ")" + path + R"(", "value": )" + value + "}";
    EXPECT_EQ(set(parameters, Role::group), "-32003 " + whole + "/installMode: only root may write it");
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(set(parameters, Role::root), "true");
    config->enabledIs(false);
    config->installModeIs(0600);
  }
}

TEST_F(StateTree, InitialValuesAreAppliedWholeOrNotAtAll) {
  TemporaryFolder const folder;
  std::string const file = folder.path("/values.json");
  auto const apply = [&](std::string const& content) -> std::string {
    folder.write("/values.json", content);
    try {
      applyInitialValues(tree, file);
      return "";
    } catch (InitialValuesError const& error) {
      return std::string(error.what()).substr(file.size());
    }
  };
  std::string const before = dump();
  for (auto const& [error, content] : transcript("initial_values.txt")) {
    EXPECT_EQ(apply(content), error);
    EXPECT_EQ(dump(), before) << error;
  }
  EXPECT_EQ(apply(R"({"/zerotouch/config": {"enabled": true},
                      "/entityMib/status": {"systemMacAddr": "02:00:00:00:00:01",
                                            "root": {"initStatus": "initialized"}}})"),
            "");
  EXPECT_TRUE(config->enabled());
  EXPECT_EQ(entityMib->systemMacAddr().stringValue(), "02:00:00:00:00:01");
  EXPECT_EQ(entityMib->root()->initStatus(), EntityMib::InitStatus::initialized);
  std::filesystem::remove(file);
  EXPECT_THROW(applyInitialValues(tree, file), InitialValuesError);
}

}  // namespace Statebase::testing
