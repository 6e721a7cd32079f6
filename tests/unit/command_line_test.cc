// The command line as people and programs see it, run against a state tree under simulated time.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <future>

#include "platform/model/history.h"
#include "platform/statebase/Server.h"
#include "tests/unit/StatebaseFixture.h"

namespace Statebase::testing {

namespace {

class CommandLine : public ::testing::Test, protected TestTree {
 protected:
  CommandLine() {
    tree.mount("/zerotouch/sm", machine, Access::readOnly);
    tree.mount("/zerotouch/status", machine->status(), Access::readOnly);
    tree.mount("/log/history", history, Access::readOnly);
  }

  // What it prints, standard error included, then its exit code.
  std::string run(std::string const& arguments) {
    std::string const command =
        "exec 2>&1; export TZ=UTC STATEBASESOCKNAME=" + path + "; " ZEROTOUCH_PROGRAM " " + arguments;
    auto done = std::async(std::launch::async, [&] {
      std::string text;
      std::FILE* const output = popen(command.c_str(), "re");
      char piece[4096];
      while (std::size_t const count = std::fread(piece, 1, sizeof piece, output)) text.append(piece, count);
      int const status = pclose(output);
      return text + "exit " + std::to_string(WEXITSTATUS(status));
    });
    while (done.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) time.settle();
    return done.get();
  }

  Kel::testing::SimulatedTime time;
  Kel::Ptr<History::Log> history = Kel::makePtr<History::Log>();
  Kel::Ptr<ZeroTouch::ZeroTouchSmModel> machine = Kel::makePtr<ZeroTouch::ZeroTouchSmModel>(
      config, Kel::makePtr<ZeroTouch::Status>(), dhcpStatus, nullptr, nullptr, nullptr, nullptr, nullptr,
      nullptr, entityMib, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
      nullptr, nullptr, nullptr, nullptr, nullptr);
  TemporaryDirectory directory;
  std::string path = directory / "statebase.sock";
  std::unique_ptr<Server> server =
      std::make_unique<Server>(tree, Server::Options{.path = path, .group = {}, .callerOf = {}});
};

}  // namespace

TEST_F(CommandLine, StatusShowsWhereProvisioningStands) {
  config->enabledIs(true);
  config->maxRunTimeIs(90'000);
  machine->currentStateIs(ZeroTouch::ProvisioningState::stateDhcpQuery);
  machine->startTimeIs(Kel::now());
  machine->stateTimeIs(Kel::now() + 3600);
  machine->retryCountIs(2);
  machine->timerIs(Kel::makePtr<ZeroTouch::TimerBaseModel>("DhclientQueryTimer", 15, 15, Kel::now() + 3600));
  machine->timerActiveIs(true);
  machine->transitionReasonIs("the ports are set up");
  machine->lastFailureTimeIs(Kel::now() + 3000);
  machine->lastFailureStateIs(ZeroTouch::ProvisioningState::stateFetchConfig);
  machine->lastFailureCauseIs("the download has failed");
  machine->lastFailurePortIs("1/1");
  machine->lastFailureUrlIs("http://h/x");
  time.advance(3605);
  EXPECT_EQ(run("status"),
            "Provisioning:    enabled\n"
            "State:           stateDhcpQuery, for 5 s\n"
            "Because:         the ports are set up\n"
            "Retries:         2\n"
            "Waits for:       DhclientQueryTimer, until 2023-11-14 23:13:35 (10 s of 15 s are left)\n"
            "Run time:        1 h 0 min\n"
            "Last failure:    23:03:20 in stateFetchConfig on 1/1: the download has failed, http://h/x\n"
            "Run time limit:  1 d 1 h\n"
            "Script limit:    1 h 0 min\n"
            "exit 0");
  machine->timerActiveIs(false);
  config->cancelledIs(true);
  auto const expectLine = [this](std::string const& line) {
    std::string const text = run("status");
    EXPECT_NE(text.find(line + "\n"), std::string::npos) << text;
  };
  expectLine("enabled, cancelled");
  expectLine("Waits for:       no timer");
  machine->currentStateIs(ZeroTouch::ProvisioningState::stateInit);
  expectLine("Waits for:       the hardware inventory to be ready");
  config->enabledIs(false);
  expectLine("Waits for:       being enabled");
  machine->currentStateIs(ZeroTouch::ProvisioningState::stateShutdown);
  machine->reloadRequestedIs(true);
  expectLine("Waits for:       the reload, which was requested");
}

TEST_F(CommandLine, PortsTellWhetherTheyTakePartAndWhyNot) {
  auto const lags = Kel::makePtr<Interface::EthLagIntfStatusDir>();
  auto const configs = Kel::makePtr<Interface::AllEthPhyIntfConfigDir>();
  tree.mount("/interface/status/ethLag", lags, Access::readOnly);
  tree.mount("/interface/config/ethPhy", configs, Access::readOnly);
  ports->intfStatusDelAll();
  EXPECT_TRUE(run("ports").starts_with("There are no ports."));

  auto const add = [&](std::string const& name, Interface::IntfForwardingModel model, bool up) {
    auto const port = ports->intfStatusIs(Wire::IntfId(name));
    port->deviceNameIs("et" + name);
    port->forwardingModelIs(model);
    port->linkStatusIs(up ? Interface::LinkStatus::up : Interface::LinkStatus::down);
    port->operStatusIs(up ? Interface::OperStatus::up : Interface::OperStatus::down);
    return port;
  };
  using Model = Interface::IntfForwardingModel;
  Wire::IntfId const first("1/1");
  auto const record = machine->phyIntfStatusIs(first, add("1/1", Model::routed, true));
  machine->intfStatusIs(record);
  machine->intfLldpPoolIs(ports->intfStatus(first));
  record->intfPamSmIs("1/1", Kel::makePtr<Wire::Pam>(first))->heardTimeIs(Kel::now());
  machine->intfNoSpeedChangePoolIs(add("1/2", Model::bridged, false));
  ports->intfStatus(Wire::IntfId("1/2"))->linkStatusIs(Interface::LinkStatus::up);
  add("1/3", Model::routed, false);
  configs->intfConfigIs(first)->linkModeLocalIs(Interface::EthLinkMode::linkModeAutoneg);
  configs->intfConfigIs(first)->advertisedModesLocalIs({.mode25G = true});
  machine->nextLinkModeForIntfIs(first, Interface::EthLinkMode::linkMode40G);
  auto const second = ports->intfStatus(Wire::IntfId("1/3"));
  machine->intfStatusIs(machine->phyIntfStatusIs(Wire::IntfId("1/3"), second));
  dhcpStatus->intfDhcpStatusIs("et1/1")->reasonIs("FAIL");
  dhcpStatus->intfDhcp6StatusIs("et1/1")->reasonIs("BOUND6");
  dhcpStatus->intfDhcp6StatusIs("et1/1")->bootFileNameIs("http://h/\033c");
  machine->intfStatus6StatelessIs(machine->intfStatus(Wire::IntfId("1/3")));
  machine->dhclientIntfIs("et1/1");
  machine->dhclientReleasesIs(true);
  machine->choosenIntfIs(record);
  time.advance(12);
  EXPECT_EQ(run("ports"),
            "Port  Device  Link         Takes part   Speed     Next  LLDP      Keeps speed\n"
            "1/1   et1/1   up           yes          auto 25g  40g   12 s ago  hears LLDP\n"
            "1/2   et1/2   up, is down  no, bridged  -         -     never     inactive\n"
            "1/3   et1/3   down         yes          -         -     never     -\n"
            "\n"
            "Port  Family            Client          Report  Boot file    Chosen\n"
            "1/1   DHCPv4            releases        FAIL    -            no, nobody answered\n"
            "1/1   DHCPv6            -               BOUND6  http://h/?c  yes\n"
            "1/3   DHCPv4            -               -       -            not asked, no link\n"
            "1/3   DHCPv6 stateless  waits its turn  -       -            not asked, no link\n"
            "exit 0");
  EXPECT_NE(run("ports --json").find("\"nextSpeed\": \"40g\""), std::string::npos);
}

TEST_F(CommandLine, ValuesAndExitCodes) {
  std::string const maxRunTime = "/zerotouch/config/maxRunTime";
  history->stateIs(1, {Kel::now(), "stateInit", "the host has started"});
  // A pipe that nobody reads any more.
  int closedPipe[2];
  ASSERT_EQ(pipe(closedPipe), 0);
  close(closedPipe[0]);
  struct {
    std::string arguments;
    std::string output;
  } const cases[] = {
      {"set " + maxRunTime + " 90", "exit 0"},
      {"get " + maxRunTime, "90.0\nexit 0"},
      {"set " + maxRunTime + " unlimited --json", "true\nexit 0"},
      {"get " + maxRunTime, "unlimited\nexit 0"},
      {"get " + maxRunTime + " --json", "\"unlimited\"\nexit 0"},
      {"set /zerotouch/config '{\"scriptExecTimeout\": 5}'", "exit 0"},
      {"get /zerotouch/config/scriptExecTimeout", "5\nexit 0"},
      {"cancel", "zerotouch: provisioning is not enabled, so there is nothing to cancel\nexit 1"},
      {"set /zerotouch/config/cancelled true", "exit 0"},
      {"enable --json", "true\nexit 0"},
      {"get /zerotouch/config/cancelled", "false\nexit 0"},
      // Nobody acts on it here.
      {"cancel",
       "zerotouch: the request to cancel is noted, but the agent has not acted on it; the state is "
       "stateInit\nexit 1"},
      {"get /zerotouch/config/cancelled", "true\nexit 0"},
      {"disable", "Provisioning is disabled; the state is stateInit.\nexit 0"},
      {"watch --until stateInit", "2023-11-14 22:13:20  stateInit: the host has started\nexit 0"},
      {"list /zerotouch",
       "Name        Kind    Type                         Unit  Meaning\n"
       "config      entity  ZeroTouch::Config                  What the operator asks for. The command line "
       "writes it, "
       "the agent reacts to each attribute.\n"
       "dhcpStatus  entity  ZeroTouch::DhcpStatus              DHCP results, written by the hook that the "
       "DHCP client "
       "runs.\n"
       "sm          entity  ZeroTouch::ZeroTouchSmModel        The provisioning state machine.\n"
       "status      entity  ZeroTouch::Status                  What the agent says.\n"
       "exit 0"},
      {"set " + maxRunTime + " soon",
       "zerotouch: /zerotouch/config/maxRunTime: expected seconds (a number from 0 on) or "
       "\"unlimited\"\nexit 1"},
      {"--json get /x",
       R"({"error":{"code":-32001,"message":"/x: nothing is at /x","data":{"path":"/x","reason":"nothing is at /x"}}})"
       "\nexit 1"},
      {"set /zerotouch/sm/retryCount 1", "zerotouch: /zerotouch/sm/retryCount: it is read-only\nexit 1"},
      {"--socket " + (directory / "none") + " status",
       "zerotouch: no host is running: there is no " + (directory / "none") + "\nexit 3"},
      {"get", "zerotouch: get: path is required; zerotouch get --help\nexit 2"},
      {"get /zerotouch/conf/enabled",
       "zerotouch: /zerotouch/conf/enabled: nothing is at /zerotouch/conf (did you mean "
       "/zerotouch/config?)\nexit 1"},
      {"", "zerotouch: say what to do; zerotouch --help lists the verbs\nexit 2"},
      {"staus",
       "zerotouch: there is no verb 'staus' (did you mean status?); zerotouch --help lists them\nexit 2"},
      {"status --jsn", "zerotouch: there is no option '--jsn' of status (did you mean --json?)\nexit 2"},
      {"status --jsn --json",
       R"json({"error":{"message":"there is no option '--jsn' of status (did you mean --json?)"}})json"
       "\nexit 2"},
      {"status now", "zerotouch: status takes no 'now'\nexit 2"},
      {"watch --until shutdown",
       "zerotouch: --until: there is no state 'shutdown' (did you mean stateShutdown?)\nexit 2"},
      {"explain ztp_retyr",
       "zerotouch: there is no event 'ztp_retyr' (did you mean ZTP_RETRY?); zerotouch explain lists "
       "them\nexit "
       "2"},
      {"list / >/dev/full", "zerotouch: standard output: No space left on device\nexit 1"},
      {"list / >&" + std::to_string(closedPipe[1]), "exit 0"},
      {"list / >&-", "zerotouch: standard output: Bad file descriptor\nexit 1"},
  };
  for (auto const& c : cases) EXPECT_EQ(run(c.arguments), c.output) << c.arguments;
  close(closedPipe[1]);
}

}  // namespace Statebase::testing
