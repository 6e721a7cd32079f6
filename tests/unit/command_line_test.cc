// The command line as people and programs see it, run against a state tree under simulated time.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <future>

#include "platform/model/history.h"
#include "platform/statebase/InitialValues.h"
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
      // Only bash redirects to descriptors whose numbers have two digits.
      setenv("COMMAND", command.c_str(), 1);
      std::FILE* const output = popen("exec bash -c \"$COMMAND\"", "re");
      char piece[4096];
      while (std::size_t const count = std::fread(piece, 1, sizeof piece, output)) text.append(piece, count);
      int const status = pclose(output);
      return text + "exit " + std::to_string(WEXITSTATUS(status)) + "\n";
    });
    while (done.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) time.settle();
    return done.get();
  }

  void expectTranscript(std::string const& name) {
    for (auto const& [arguments, output] : transcript(name)) EXPECT_EQ(run(arguments), output) << arguments;
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
  applyInitialValues(tree, PROJECT_FOLDER "/tests/unit/expected/status.json");
  machine->timerIs(Kel::makePtr<ZeroTouch::TimerBaseModel>("DhclientQueryTimer", 15, 15, Kel::now() + 3600));
  machine->timerActiveIs(true);
  time.advance(3605);
  expectTranscript("status.txt");
  machine->timer()->purposeIs("30 s for answers");
  EXPECT_NE(run("status").find("DhclientQueryTimer (30 s for answers), until "), std::string::npos);
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
  history->stateIs(1, {Kel::now(), "stateShutdown", "it has come to something"});
  using enum ZeroTouch::TransitionCause;
  for (auto const& [cause, state, code] : {std::tuple{configInstalled, "provisioned, reloading", 6},
                                           {scriptSucceeded, "provisioned, reloading", 6},
                                           {runTimeOver, "out of time, reloading", 7},
                                           {provisioningCancelled, "cancelled, reloading", 8}}) {
    machine->transitionCauseIs(cause);
    std::string const text = run("status --wait=stateRetry");
    EXPECT_NE(text.find(std::string(state) + " (stateShutdown), for"), std::string::npos) << text;
    EXPECT_TRUE(text.ends_with("exit " + std::to_string(code) + "\n")) << text;
  }
  machine->transitionCauseIs(scriptSucceeded);
  EXPECT_TRUE(run("status --wait").ends_with("exit 0\n"));
}

TEST_F(CommandLine, PortsTellWhetherTheyTakePartAndWhyNot) {
  auto const lags = Kel::makePtr<Interface::EthLagIntfStatusDir>();
  auto const configs = Kel::makePtr<Interface::AllEthPhyIntfConfigDir>();
  tree.mount("/interface/status/ethLag", lags, Access::readOnly);
  tree.mount("/interface/config/ethPhy", configs, Access::readOnly);
  ports->intfStatusDelAll();
  EXPECT_TRUE(run("ports").starts_with("There are no ports."));

  applyInitialValues(tree, PROJECT_FOLDER "/tests/unit/expected/ports.json");
  Wire::IntfId const first("1/1"), second("1/2"), third("1/3");
  auto const record = machine->phyIntfStatusIs(first, ports->intfStatus(first));
  machine->intfStatusIs(record);
  machine->intfLldpPoolIs(ports->intfStatus(first));
  auto const lldp = record->intfPamSmIs("1/1", Kel::makePtr<Wire::Pam>(first));
  lldp->heardTimeIs(Kel::now());
  lldp->neighbourIs("spine\033[2J");
  lldp->neighbourPortIs("Ethernet7");
  machine->intfNoSpeedChangePoolIs(ports->intfStatus(second));
  configs->intfConfigIs(first)->linkModeLocalIs(Interface::EthLinkMode::linkModeAutoneg);
  configs->intfConfigIs(first)->advertisedModesLocalIs({.mode25G = true});
  machine->nextLinkModeForIntfIs(first, Interface::EthLinkMode::linkMode40G);
  machine->intfStatusIs(machine->phyIntfStatusIs(third, ports->intfStatus(third)));
  machine->intfStatus6StatelessIs(machine->intfStatus(third));
  machine->dhclientIntfIs("et1/1");
  machine->dhclientReleasesIs(true);
  machine->choosenIntfIs(record);
  machine->chosenAnswerIs(Kel::makePtr<ZeroTouch::ChosenAnswer>(
      ZeroTouch::AnswerFamily::dhcpv6, dhcpStatus->intfDhcp6Status("et1/1"), "http://h/\033c", "http", "",
      ZeroTouch::Problem::none));
  time.advance(12);
  expectTranscript("ports.txt");
  EXPECT_NE(run("ports --json").find("\"nextSpeed\": \"40g\""), std::string::npos);
  machine->choosenIntfIs(nullptr);
  machine->standsBackIs(third, "the download has failed");
  machine->ignoredAnswerIs("et1/1", "10.0.0.9 is none of the servers that count");
  std::string const shown = run("ports");
  for (char const* const row :
       {"waits for others: the download has failed\n", "no, 10.0.0.9 is none of the servers that count\n"})
    EXPECT_NE(shown.find(row), std::string::npos) << shown;
}

TEST_F(CommandLine, ValuesAndExitCodes) {
  history->stateIs(1, {Kel::now(), "stateInit", "the host has started"});
  // A pipe that nobody reads any more.
  int closedPipe[2];
  ASSERT_EQ(pipe(closedPipe), 0);
  close(closedPipe[0]);
  ASSERT_EQ(setenv("PIPE", std::to_string(closedPipe[1]).c_str(), 1), 0);
  expectTranscript("command_line.txt");
  EXPECT_EQ(run(""), "zerotouch: say what to do; zerotouch --help lists the verbs\nexit 2\n");
  close(closedPipe[1]);
}

}  // namespace Statebase::testing
