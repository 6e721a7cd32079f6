// What requests read from and write to the state tree, without a socket.
#include <fstream>

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

  std::string get(std::string const& path) { return request("get", R"({"path": ")" + path + "\"}"); }
  std::string set(std::string const& params, Role role = Role::host) { return request("set", params, role); }
  std::string del(std::string const& path, Role role = Role::host) {
    return request("delete", R"({"path": ")" + path + "\"}", role);
  }

 private:
  Role role() const override { return role_; }
  Value watch(std::string const&) override { return nullptr; }
  bool unwatch(std::string const&) override { return false; }

  Kel::testing::SimulatedTime time_{1'700'000'000};
  Role role_ = Role::none;
};

// Notes the changes of an entity in their order.
class Recorder : public Kel::Watcher {
 public:
  explicit Recorder(Kel::Ptr<Kel::Entity const> entity) : entity_(std::move(entity)) {
    entity_->watcherIs(this);
  }
  ~Recorder() override { entity_->watcherDel(this); }
  void onChange(Kel::Entity const&, std::string_view attribute, std::string_view key) override {
    changes.push_back(std::string(attribute) + (key.empty() ? "" : "=" + std::string(key)));
  }
  std::vector<std::string> changes;

 private:
  Kel::Ptr<Kel::Entity const> entity_;
};

}  // namespace

TEST_F(StateTree, EveryKindOfPathIsReadable) {
  entityMib->rootIs()->modelNameIs("S1\x01\xff");
  dhcpStatus->intfDhcpStatusIs("et1")->nameServerIs(3, *Wire::IpGenAddr::fromString("10.0.0.1"));
  struct {
    char const* path;
    char const* value;
  } const cases[] = {
      {"/zerotouch/config/maxRunTime", R"("unlimited")"},
      {"/zerotouch/config",
       R"({"enabled":false,"cancelled":false,"scriptExecTimeout":3600,"maxDownloadSize":268435456,"maxRunTime":"unlimited"})"},
      {"/interface/status/ethPhy/intfStatus/Ethernet1~11/linkStatus", R"("unknown")"},
      // An attribute of the derived type, through a collection of its base.
      {"/interface/status/all/intfStatus/Ethernet1~11/macAddr", R"("00:00:00:00:00:00")"},
      {"/zerotouch/dhcpStatus/intfDhcpStatus/et1/nameServer", R"({"3":"10.0.0.1"})"},
      {"/zerotouch/dhcpStatus/intfDhcpStatus/et1/nameServer/3", R"("10.0.0.1")"},
      {"/entityMib",
       "{\"status\":{\"systemMacAddr\":\"00:00:00:00:00:00\",\"root\":{\"initStatus\":"
       "\"uninitialized\",\"modelName\":\"S1\\u0001\xef\xbf\xbd\",\"hardwareRev\":\"\",\"serialNum\":\"\"}}"
       "}"},
  };
  for (auto const& c : cases) EXPECT_EQ(get(c.path), c.value) << c.path;
  EXPECT_EQ(request("list", R"({"path": "/interface/status"})"),
            R"([{"name":"all","kind":"entity","type":"Interface::AllIntfStatusDir","documentation":)"
            R"("Status of every interface of any kind; shares the records of the other directories."},)"
            R"({"name":"ethPhy","kind":"entity","type":"Interface::AllEthPhyIntfStatusDir","documentation":)"
            R"("Status of every physical port."}])");
  EXPECT_EQ(request("list", R"({"path": "/interface/status/ethPhy/intfStatus"})"),
            R"([{"name":"Ethernet1/1","kind":"entity","type":"Interface::EthPhyIntfStatus"}])");
  EXPECT_EQ(request("time", "{}"), "1700000000.0");
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
  EXPECT_EQ(set(R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1", "replace": true,
                    "attributes": {"mtu": 9000}})"),
            "true");
  EXPECT_EQ(directory.changes, std::vector<std::string>(3, "intfDhcpStatus=et1"));
  EXPECT_EQ(dhcpStatus->intfDhcpStatus("et1")->mtu(), 9000U);
  EXPECT_EQ(dhcpStatus->intfDhcpStatus("et1")->reason(), "");
  EXPECT_EQ(entry->mtu(), 1400U);
}

TEST_F(StateTree, DeleteTakesEntriesWholeCollectionsAndOptionalEntities) {
  entityMib->rootIs();
  for (char const* name : {"et1", "et2", "et3"}) dhcpStatus->intfDhcpStatusIs(name);
  EXPECT_EQ(del("/zerotouch/dhcpStatus/intfDhcpStatus/et2"), "true");
  EXPECT_EQ(del("/zerotouch/dhcpStatus/intfDhcpStatus/et2"), "true");
  EXPECT_EQ(dhcpStatus->intfDhcpStatus().keys(), (std::vector<Kel::Name>{"et1", "et3"}));
  EXPECT_EQ(del("/zerotouch/dhcpStatus/intfDhcpStatus"), "true");
  EXPECT_TRUE(dhcpStatus->intfDhcpStatus().empty());
  EXPECT_EQ(del("/entityMib/status/root"), "true");
  EXPECT_FALSE(entityMib->root());
}

TEST_F(StateTree, BadInputIsNamedAndChangesNothing) {
  dhcpStatus->intfDhcpStatusIs("et1");
  std::string const before = dump();
  std::string const et1 = "/zerotouch/dhcpStatus/intfDhcpStatus/et1";
  struct {
    char const* params;
    std::string error;
  } const cases[] = {
      {R"({})", "-32602 'path' is missing or no string"},
      {R"([])", "-32602 'params' is no object"},
      {R"({"path": "/zerotouch/config/enabled", "value": true, "valeu": 1})",
       "-32602 /zerotouch/config/enabled: unknown or repeated parameter 'valeu'"},
      {R"({"path": "/zerotouch/config/enabled"})", "-32602 /zerotouch/config/enabled: 'value' is missing"},
      {R"({"path": "/zerotouch/config", "attributes": {}, "value": {}})",
       "-32602 /zerotouch/config: 'value' and 'attributes' exclude each other"},
      {R"({"path": "/zerotouch/config", "replace": 1})", "-32602 /zerotouch/config: 'replace' is no boolean"},
      {R"({"path": "zerotouch"})", "-32001 zerotouch: malformed path"},
      {R"({"path": "/zerotouch//config"})", "-32001 /zerotouch//config: malformed path"},
      {R"({"path": "/zerotouch/~2"})", "-32001 /zerotouch/~2: malformed path"},
      {R"({"path": "/nowhere/x"})", "-32001 /nowhere/x: nothing is at /nowhere"},
      {R"({"path": "/zerotouch", "value": {}})", "-32002 /zerotouch: a directory cannot be written"},
      {R"({"path": "/zerotouch/config/enabled/x", "value": 1})",
       "-32001 /zerotouch/config/enabled/x: nothing lies below /zerotouch/config/enabled"},
      {R"({"path": "/zerotouch/config/x", "value": 1})",
       "-32001 /zerotouch/config/x: ZeroTouch::Config has no attribute 'x'"},
      {R"({"path": "/zerotouch/config", "replace": true})",
       "-32002 /zerotouch/config: only an entity that another one holds can be replaced"},
      {R"({"path": "/zerotouch/config", "attributes": {"enabled": true, "cancelled": 1}})",
       "-32002 /zerotouch/config/cancelled: expected true or false"},
      {R"({"path": "/zerotouch/config", "attributes": {"enabled": true, "x/y": 1}})",
       "-32001 /zerotouch/config/x~1y: ZeroTouch::Config has no attribute 'x/y'"},
      {R"({"path": "/zerotouch/config", "attributes": [1]})", "-32002 /zerotouch/config: expected an object"},
      {R"({"path": "/zerotouch/config/scriptExecTimeout", "value": -1})",
       "-32002 /zerotouch/config/scriptExecTimeout: expected a whole number from 0 to 4294967295"},
      {R"({"path": "/zerotouch/config/scriptExecTimeout", "value": 4294967296})",
       "-32002 /zerotouch/config/scriptExecTimeout: expected a whole number from 0 to 4294967295"},
      {R"({"path": "/zerotouch/config/maxRunTime", "value": "long"})",
       "-32002 /zerotouch/config/maxRunTime: expected seconds (a number from 0 on) or \"unlimited\""},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1/mtu", "value": 65536})",
       "-32002 " + et1 + "/mtu: expected at most 65535"},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1/reason", "value": "0123456789abcdef0123456789abcdef0"})",
       "-32002 " + et1 + "/reason: longer than 32 bytes"},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et2/mtu", "value": 1})",
       "-32001 /zerotouch/dhcpStatus/intfDhcpStatus/et2/mtu: what should hold it does not exist"},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et2", "attributes": {"mtu": 1, "hostname": 1}})",
       "-32002 /zerotouch/dhcpStatus/intfDhcpStatus/et2/hostname: expected a string"},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1", "replace": true, "attributes": {"mtu": ""}})",
       "-32002 " + et1 + "/mtu: expected a whole number from 0 to 4294967295"},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1/gateway/256", "value": "10.0.0.1"})",
       "-32001 " + et1 + "/gateway/256: '256': expected a whole number from 0 to 255"},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1/gateway/00", "value": "10.0.0.1"})",
       "-32001 " + et1 + "/gateway/00: '00': expected a whole number from 0 to 255"},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1", "attributes":
          {"mtu": 1, "gateway": {"0": "10.0.0.1", "1": "10.0.0.256"}}})",
       "-32002 " + et1 + "/gateway/1: '10.0.0.256' is no IP address"},
      {R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1/staticRoute/0", "value": {"prefix": "10.0.0.0/33"}})",
       "-32002 " + et1 + "/staticRoute/0: prefix: '10.0.0.0/33' is no IPv4 address with mask"},
      {R"({"path": "/zerotouch/dhcpStatus", "attributes": {"intfDhcpStatus": {"": {}}}})",
       "-32002 /zerotouch/dhcpStatus/intfDhcpStatus/: an empty key"},
      {R"({"path": "/interface/status/ethPhy/intfStatus/Ethernet1~11/linkStatus", "value": "sideways"})",
       "-32002 /interface/status/ethPhy/intfStatus/Ethernet1~11/linkStatus: expected one of unknown, down, "
       "up"},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(set(c.params), c.error) << c.params;
    EXPECT_EQ(dump(), before) << c.params;
  }
  EXPECT_EQ(get("/zerotouch/dhcpStatus/intfDhcpStatus/et2"),
            "-32001 /zerotouch/dhcpStatus/intfDhcpStatus/et2: no such entry");
  EXPECT_EQ(del("/zerotouch/config"), "-32002 /zerotouch/config: what is mounted cannot be deleted");
  EXPECT_EQ(del("/zerotouch/config/enabled"), "-32002 /zerotouch/config/enabled: it cannot be deleted");
  EXPECT_EQ(del("/routing/config/routeList"), "-32002 /routing/config/routeList: it cannot be deleted");
  EXPECT_EQ(del("/zerotouch"), "-32002 /zerotouch: a directory cannot be written");
  EXPECT_EQ(dump(), before);
}

TEST_F(StateTree, RequestsThatAreNoneAreRefusedAndNotificationsNeverAnswered) {
  struct {
    std::string line;
    char const* answer;
  } const cases[] = {
      {"",
       "-32700 not JSON: syntax error while parsing value - unexpected end of input; expected '[', '{', or a "
       "literal"},
      {R"({"jsonrpc": "2.0", "id": 1)",
       "-32700 not JSON: syntax error while parsing object - unexpected end of input; expected '}'"},
      {std::string(40'000, '['), "-32700 not JSON: nested deeper than 32 levels"},
      {"[]", "-32600 a request is an object"},
      {R"({"id": 1, "method": "get"})", "-32600 'jsonrpc' is not \"2.0\""},
      {R"({"jsonrpc": "2.0", "id": 1})", "-32600 'method' is missing or no string"},
      {R"({"jsonrpc": "2.0", "id": [], "method": "time"})", "-32600 'id' is no string and no number"},
      {R"({"jsonrpc": "2.0", "id": "a", "method": "reboot"})", "-32601 unknown method 'reboot'"},
      {R"({"jsonrpc": "2.0", "id": null, "method": "time"})", "1700000000.0"},
      // Without an id, whatever is wrong.
      {R"({"jsonrpc": "2.0", "method": "get", "params": {"path": "/zerotouch"}})", ""},
      {R"({"jsonrpc": "2.0", "method": "set", "params": {"path": "/nowhere"}})", ""},
      {R"({"jsonrpc": "1.0", "method": 1, "params": 2})", ""},
      {R"({})", ""},
  };
  for (auto const& c : cases) EXPECT_EQ(answerTo(c.line), c.answer) << c.line.substr(0, 80);
  EXPECT_EQ(answerTo(R"({"jsonrpc": "2.0", "method": "set",
                         "params": {"path": "/zerotouch/config/enabled", "value": true}})"),
            "");
  EXPECT_TRUE(config->enabled());
}

TEST_F(StateTree, RolesDecideWhoMayWrite) {
  std::string const before = dump();
  std::string const toConfig = R"({"path": "/zerotouch/config/enabled", "value": true})";
  std::string const toDhcp = R"({"path": "/zerotouch/dhcpStatus/intfDhcpStatus/et1"})";
  std::string const toStatus = R"({"path": "/entityMib/status/root"})";
  struct {
    Role role;
    std::string params;
    char const* answer;
  } const cases[] = {
      {Role::none, toConfig, "-32003 /zerotouch/config/enabled: it is read-only"},
      {Role::group, toConfig, "true"},
      {Role::root, toConfig, "true"},
      {Role::none, toDhcp, "-32003 /zerotouch/dhcpStatus/intfDhcpStatus/et1: it is read-only"},
      {Role::group, toDhcp, "-32003 /zerotouch/dhcpStatus/intfDhcpStatus/et1: only root may write it"},
      {Role::root, toDhcp, "true"},
      {Role::group, toStatus, "-32003 /entityMib/status/root: it is read-only"},
      {Role::root, toStatus, "-32003 /entityMib/status/root: it is read-only"},
      {Role::host, toStatus, "true"},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(set(c.params, c.role), c.answer) << c.params;
    bool const allowed = std::string(c.answer) == "true";
    EXPECT_EQ(dump() != before, allowed) << c.params;
    config->enabledIs(false);
    dhcpStatus->intfDhcpStatusDelAll();
    entityMib->rootDel();
  }
  EXPECT_EQ(del("/entityMib/status/root", Role::root), "-32003 /entityMib/status/root: it is read-only");
  EXPECT_EQ(del("/zerotouch/dhcpStatus/intfDhcpStatus", Role::group),
            "-32003 /zerotouch/dhcpStatus/intfDhcpStatus: only root may write it");
}

TEST_F(StateTree, InitialValuesAreAppliedWholeOrNotAtAll) {
  TemporaryDirectory const directory;
  std::string const file = directory / "values.json";
  auto const apply = [&](std::string const& content) -> std::string {
    std::ofstream(file) << content;
    try {
      applyInitialValues(tree, file);
      return "";
    } catch (InitialValuesError const& error) {
      return std::string(error.what()).substr(file.size());
    }
  };
  std::string const before = dump();
  std::string const start = "{\n  \"/zerotouch/config\": {\"enabled\": true},\n";
  struct {
    std::string content;
    char const* error;
  } const cases[] = {
      {"", ":1: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal"},
      {"[\n]", ":1: expected an object with paths as its members"},
      {start + "  \"/entityMib/status\": {}\n  \"x\": 1}",
       ":4: syntax error while parsing object - unexpected string literal; expected '}'"},
      {start + "\n  \"/nowhere\": {}}", ":4: /nowhere: nothing is at /nowhere"},
      {start + "  \"/entityMib/status\": {\n    \"root\": {\n      \"initStatus\":\n \"begun\"}}}",
       ":5: /entityMib/status/root/initStatus: expected one of uninitialized, initialized, failed"},
      {start + "  \"/interface/status/ethPhy\": {\n    \"intfStatus\": {\n      \"Ethernet1/1\": {\n"
               "        \"speed\": 1}}}}",
       ":6: /interface/status/ethPhy/intfStatus/Ethernet1~11/speed: "
       "Interface::EthPhyIntfStatus has no attribute 'speed'"},
      {start + "  \"/zerotouch/config/maxRunTime\": null}",
       ":3: /zerotouch/config/maxRunTime: expected seconds (a number from 0 on) or \"unlimited\""},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(apply(c.content), c.error);
    EXPECT_EQ(dump(), before) << c.error;
  }
  EXPECT_EQ(apply(start + R"("/entityMib/status": {"systemMacAddr": "02:00:00:00:00:01",
                                                   "root": {"initStatus": "initialized"}}})"),
            "");
  EXPECT_TRUE(config->enabled());
  EXPECT_EQ(entityMib->systemMacAddr().stringValue(), "02:00:00:00:00:01");
  EXPECT_EQ(entityMib->root()->initStatus(), EntityMib::InitStatus::initialized);
  std::filesystem::remove(file);
  EXPECT_THROW(applyInitialValues(tree, file), InitialValuesError);
}

}  // namespace Statebase::testing
