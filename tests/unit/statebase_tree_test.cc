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

  std::string get(std::string const& path) { return request("get", R"({"path": ")" + path + "\"}"); }
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

TEST_F(StateTree, EveryKindOfPathIsReadable) {
  entityMib->rootIs()->modelNameIs("S1\x01\xff");
  dhcpStatus->intfDhcpStatusIs("et1")->nameServerIs(3, *Wire::IpGenAddr::fromString("10.0.0.1"));
  for (
      auto const& [path, value] : std::vector<std::pair<char const*, char const*>>{
          {"/zerotouch/config/maxRunTime", R"("unlimited")"},
          {"/zerotouch/config",
           R"({"enabled":false,"cancelled":false,"scriptExecTimeout":3600,"maxDownloadSize":268435456,"maxRunTime":"unlimited","proxyFromEnvironment":false,"installMode":384})"},
          {"/interface/status/ethPhy/intfStatus/Ethernet1~11/linkStatus", R"("unknown")"},
          // An attribute of the derived type, through a collection of its base.
          {"/interface/status/all/intfStatus/Ethernet1~11/macAddr", R"("00:00:00:00:00:00")"},
          {"/zerotouch/dhcpStatus/intfDhcpStatus/et1/nameServer", R"({"3":"10.0.0.1"})"},
          {"/zerotouch/dhcpStatus/intfDhcpStatus/et1/nameServer/3", R"("10.0.0.1")"},
          {"/entityMib",
           "{\"status\":{\"systemMacAddr\":\"00:00:00:00:00:00\",\"root\":{\"initStatus\":"
           "\"uninitialized\",\"modelName\":\"S1\\u0001\xef\xbf\xbd\",\"hardwareRev\":\"\",\"serialNum\":"
           "\"\"}}}"}}) {
    EXPECT_EQ(get(path), value) << path;
  }
  EXPECT_EQ(request("time", "{}"), "1700000000.0");
  std::string const enabled = "/zerotouch/config/enabled";
  for (
      auto const& [paths, answer] : std::vector<std::pair<std::string, std::string>>{
          {"[]", "{}"},
          {R"(["/nowhere", "/entityMib/status/root/modelNumber", "/entityMib/status/systemMacAddr", "/zerotouch/config/enabled"])",
           R"({"/nowhere":null,"/entityMib/status/root/modelNumber":null,"/entityMib/status/systemMacAddr":"00:00:00:00:00:00","/zerotouch/config/enabled":false})"},
          {R"(["/entityMib", "entityMib"])", "-32001 entityMib: malformed path"},
          {R"(["/entityMib", "/", "/entityMib"])", "-32602 /entityMib: it is listed twice"},
          {R"(["/entityMib", 1])", "-32602 'paths' holds what is no string"},
          {R"("/entityMib")", "-32602 'paths' is no list"},
          {"[]"
           ", \"path\": \"/\"",
           "-32602 unknown or repeated parameter 'path'"}}) {
    EXPECT_EQ(request("get", R"({"paths": )" + paths + "}"), answer) << paths;
  }
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

TEST_F(StateTree, BadInputIsNamedAndChangesNothing) {
  dhcpStatus->intfDhcpStatusIs("et1");
  std::string const before = dump();
  std::string const conf = "/zerotouch/config", enabled = conf + "/enabled",
                    limit = conf + "/scriptExecTimeout", dhcp = "/zerotouch/dhcpStatus",
                    et1 = dhcp + "/intfDhcpStatus/et1", et2 = dhcp + "/intfDhcpStatus/et2",
                    link = "/interface/status/ethPhy/intfStatus/Ethernet1~11/linkStatus";
  struct {
    std::string path;
    char const* parameters;
    int code;
    char const* error;  // behind the path
  } const cases[] = {
      {enabled, R"(, "value": true, "valeu": 1)", -32602, ": unknown or repeated parameter 'valeu'"},
      {enabled, "", -32602, ": 'value' is missing"},
      {conf, R"(, "attributes": {}, "value": {})", -32602, ": 'value' and 'attributes' exclude each other"},
      {conf, R"(, "replace": 1)", -32602, ": 'replace' is no boolean"},
      {"zerotouch", "", -32001, ": malformed path"},
      {"/zerotouch//config", "", -32001, ": malformed path"},
      {"/zerotouch/~2", "", -32001, ": malformed path"},
      {"/nowhere/x", "", -32001, ": nothing is at /nowhere"},
      {"/zerotouch", R"(, "value": {})", -32002, ": a directory cannot be written"},
      {enabled + "/x", R"(, "value": 1)", -32001, ": nothing lies below /zerotouch/config/enabled"},
      {conf + "/x", R"(, "value": 1)", -32001, ": ZeroTouch::Config has no attribute 'x'"},
      {conf, R"(, "replace": true)", -32002, ": only an entity that another one holds can be replaced"},
      {conf, R"(, "attributes": {"enabled": true, "cancelled": 1})", -32002,
       "/cancelled: expected true or false"},
      {conf, R"(, "attributes": {"enabled": true, "x/y": 1})", -32001,
       "/x~1y: ZeroTouch::Config has no attribute 'x/y'"},
      {conf, R"(, "attributes": [1])", -32002, ": expected an object"},
      {limit, R"(, "value": -1)", -32002, ": expected a whole number from 0 to 4294967295"},
      {limit, R"(, "value": 4294967296)", -32002, ": expected a whole number from 0 to 4294967295"},
      {conf + "/maxRunTime", R"(, "value": "long")", -32002,
       ": expected seconds (a number from 0 on) or \"unlimited\""},
      {et1 + "/mtu", R"(, "value": 65536)", -32002, ": expected at most 65535"},
      {et1 + "/reason", R"(, "value": "0123456789abcdef0123456789abcdef0")", -32002,
       ": longer than 32 bytes"},
      {et2 + "/mtu", R"(, "value": 1)", -32001, ": what should hold it does not exist"},
      {et2, R"(, "attributes": {"mtu": 1, "hostname": 1})", -32002, "/hostname: expected a string"},
      {et1, R"(, "replace": true, "attributes": {"mtu": ""})", -32002,
       "/mtu: expected a whole number from 0 to 4294967295"},
      {et1 + "/gateway/256", R"(, "value": "10.0.0.1")", -32001,
       ": '256': expected a whole number from 0 to 255"},
      {et1 + "/gateway/00", R"(, "value": "10.0.0.1")", -32001,
       ": '00': expected a whole number from 0 to 255"},
      {et1, R"(, "attributes": {"mtu": 1, "gateway": {"0": "10.0.0.1", "1": "10.0.0.256"}})", -32002,
       "/gateway/1: '10.0.0.256' is no IP address"},
      {et1 + "/addrWithMask", R"(, "value": "10.0.0.5/33")", -32002,
       ": '10.0.0.5/33' is no IP address with mask"},
      {et1 + "/staticRoute/0", R"(, "value": {"prefix": "10.0.0.0/33"})", -32002,
       ": prefix: '10.0.0.0/33' is no IPv4 address with mask"},
      {dhcp, R"(, "attributes": {"intfDhcpStatus": {"": {}}})", -32002, "/intfDhcpStatus/: an empty key"},
      {link, R"(, "value": "sideways")", -32002, ": expected one of unknown, down, up"},
      {link, R"(, "value": 2)", -32002, ": expected one of unknown, down, up"},
  };
  for (auto const& c : cases) {
    std::string const params = R"({"path": ")" + c.path + "\"" + c.parameters + "}";
    EXPECT_EQ(set(params), std::to_string(c.code) + " " + c.path + c.error);
    EXPECT_EQ(dump(), before) << params;
  }
  EXPECT_EQ(set("{}"), "-32602 'path' is missing or no string");
  EXPECT_EQ(set("[]"), "-32602 'params' is no object");
  EXPECT_EQ(get(et2), "-32001 " + et2 + ": no such entry");
  EXPECT_EQ(del(conf), "-32002 /zerotouch/config: what is mounted cannot be deleted");
  for (std::string const& path : {enabled, std::string("/routing/config/routeList")})
    EXPECT_EQ(del(path), "-32002 " + path + ": it cannot be deleted");
  EXPECT_EQ(del("/zerotouch"), "-32002 /zerotouch: a directory cannot be written");
  EXPECT_EQ(dump(), before);
}

TEST_F(StateTree, RequestsThatAreNoneAreRefusedAndNotificationsNeverAnswered) {
  std::string const none = "syntax error while parsing value - unexpected end of input; ";
  for (auto const& [line, answer] : std::vector<std::pair<std::string, std::string>>{
           {"", "-32700 not JSON: " + none + "expected '[', '{', or a literal"},
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
           {R"({})", ""}}) {
    EXPECT_EQ(answerTo(line), answer) << line.substr(0, 80);
  }
}

TEST_F(StateTree, RolesDecideWhoMayWrite) {
  std::string const before = dump();
  std::string const enabled = "/zerotouch/config/enabled", et1 = "/zerotouch/dhcpStatus/intfDhcpStatus/et1",
                    root = "/entityMib/status/root";
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
  std::string const start = "{\n  \"/zerotouch/config\": {\"enabled\": true},\n";
  for (auto const& [content, error] : std::vector<std::pair<std::string, char const*>>{
           {"[\n]", ":1: expected an object with paths as its members"},
           {start + "  \"/entityMib/status\": {}\n  \"x\": 1}",
            ":4: syntax error while parsing object - unexpected string literal; expected '}'"},
           {start + "  \"/interface/status/ethPhy\": {\n    \"intfStatus\": {\n      \"Ethernet1/1\": {\n"
                    "        \"speed\": 1}}}}",
            ":6: /interface/status/ethPhy/intfStatus/Ethernet1~11/speed: "
            "Interface::EthPhyIntfStatus has no attribute 'speed'"},
           {start + "  \"/zerotouch/config/maxRunTime\": null}",
            ":3: /zerotouch/config/maxRunTime: expected seconds (a number from 0 on) or \"unlimited\""}}) {
    EXPECT_EQ(apply(content), error);
    EXPECT_EQ(dump(), before) << error;
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
