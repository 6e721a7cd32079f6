// zerotouchd, the agent host: builds the state tree, serves its socket, loads the agent and runs the loop.
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Loop.h"
#include "platform/kel/Trace.h"
#include "platform/linux/LogHostApplier.h"
#include "platform/statebase/InitialValues.h"
#include "platform/statebase/Server.h"
#include "programs/zerotouchd/AgentLibrary.h"
#include "programs/zerotouchd/BadInput.h"
#include "programs/zerotouchd/Children.h"
#include "programs/zerotouchd/DhcpClient.h"
#include "programs/zerotouchd/EventRing.h"
#include "programs/zerotouchd/HostConfig.h"
#include "programs/zerotouchd/LinuxPlatform.h"
#include "programs/zerotouchd/Mounts.h"
#include "programs/zerotouchd/ProvisioningSwitch.h"
#include "programs/zerotouchd/ReloadMark.h"
#include "programs/zerotouchd/history/Recorder.h"

namespace {

constexpr int exitFailed = 1;
constexpr int exitBadInput = 2;
constexpr char const* defaultConfigPath = "/etc/zerotouch/platform.toml";

struct Options {
  std::string config = defaultConfigPath;
  std::string initialValues;
  std::string trace;
  bool openTree = false;
  bool check = false;
  bool settle = false;
};

void say(std::string const& text) { std::cerr << "zerotouchd: " << text << std::endl; }

// Under a service manager that keeps our standard error, the system log is enough.
void printEvent(Kel::LogEvent const& event) {
  auto const seconds = static_cast<std::time_t>(event.time);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 32> time{};
  std::strftime(time.data(), time.size(), "%F %T", &local);
  std::cerr << time.data() << " " << event.name << ": " << event.message << std::endl;
}

void applyConfig(HostConfig const& config, ZeroTouch::Config& entity) {
  Kel::activityManager()->config()->cellTypeIs(config.cellType);
  entity.scriptExecTimeoutIs(config.scriptExecTimeout);
  entity.maxRunTimeIs(config.maxRunTime);
  entity.maxDownloadSizeIs(config.maxDownloadSize);
}

// The host name may be that of an answer until the platform has undone what a killed host left.
Kel::String systemName(HostConfig const& config) {
  if (!config.systemName.empty()) return config.systemName;
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

ProvisioningSwitch provisioningOf(HostConfig const& config, bool reloadIsDue) {
  if (reloadIsDue) return {false, "a run of this boot has ended, the reload that follows it is due"};
  return provisioningAtBoot(config.runDirectory);
}

HostConfig configOf(Options const& options) {
  return readHostConfig(options.config, options.config != defaultConfigPath);
}

int check(Options const& options) try {
  HostConfig const config = configOf(options);
  AgentLibrary const library(config.library);
  std::cout << options.config << ": ok" << std::endl;
  return 0;
} catch (std::runtime_error const& error) {
  say(error.what());
  return exitFailed;
}

void say(ProvisioningSwitch const& provisioning) {
  say(std::string("provisioning is ") + (provisioning.on ? "on" : "off") + ": " + provisioning.reason);
}

int settle(Options const& options) {
  HostConfig const config = configOf(options);
  Kel::logSinkIs(Kel::logToSystem);
  say(provisioningAtBoot(config.runDirectory));
  if (config.linuxAdapter) Linux::LogHostApplier::removeLeftBehind(config.system.logDropIn);
  return 0;
}

// Everything that can be wrong with what we are given is found before anything is touched.
int run(Options const& options) {
  if (auto const error = Kel::traceIs(options.trace); !error.empty()) throw BadInput("--trace: " + error);
  HostConfig const config = configOf(options);

  ZeroTouch::MountedEntities entities;
  EventRing events;
  Recorder history(entities);
  Statebase::Tree tree;
  mount(tree, entities, options.openTree);
  tree.mount("/log/events", events.entity(), Statebase::Access::readOnly);
  tree.mount("/log/history", history.entity(), Statebase::Access::readOnly);
  applyConfig(config, *entities.config);
  auto const applyInitialValues = [&] {
    if (!options.initialValues.empty()) Statebase::applyInitialValues(tree, options.initialValues);
  };
  applyInitialValues();

  std::signal(SIGPIPE, SIG_IGN);
  Kel::Loop& loop = Kel::Loop::instance();
  for (int const signal : {SIGTERM, SIGINT}) {
    loop.onSignal(signal, [&loop, signal] {
      say(std::string("stopping: ") + strsignal(signal));
      sd_notify(0, "STOPPING=1");
      loop.stop(0);
    });
  }
  loop.watchdogIs(true);
  Kel::logSinkIs(Kel::logToSystem);
  if (std::getenv("JOURNAL_STREAM") == nullptr) Kel::logSinkIs(printEvent);

  // Children that the agent starts while it is made need the socket already.
  std::optional<Statebase::Server> server;
  server.emplace(
      tree, Statebase::Server::Options{.path = config.socketPath, .group = config.socketGroup, .roleOf = {}});
  setenv("STATEBASESOCKNAME", config.socketPath.c_str(), 1);
  exportDhcpClient(config.dhcpClient);

  Children children(config.runDirectory + "/children");
  ReloadMark reloadMark(config.runDirectory);
  ProvisioningSwitch const provisioning = provisioningOf(config, reloadMark.left());
  say(provisioning);
  entities.config->enabledIs(provisioning.on);
  applyInitialValues();  // once more, in case the file knows better

  auto const platform =
      config.linuxAdapter ? std::make_unique<LinuxPlatform>(entities, config, reloadMark.left()) : nullptr;
  Kel::activityManager()->config()->systemNameIs(systemName(config));
  AgentLibrary const library(config.library);
  Kel::Ptr<ZeroTouch::AgentCreatorModel> agent = entities.createAgent(library.factory());
  tree.mount("/zerotouch/sm", agent->ztSm(), Statebase::Access::readOnly);
  history.machineIs(agent->ztSm());
  reloadMark.follow(agent->ztSm());
  if (reloadMark.left()) {
    entities.reloadConfig->reasonIs("ZTP RELOAD");
    entities.reloadConfig->reloadTimeIs(Kel::now());
  }
  sd_notify(0, "READY=1");
  say("ready on " + config.socketPath);
  int const code = loop.run();
  // The agent goes first: its clients are to end before the ports are put back under them.
  server.reset();
  tree.unmount("/zerotouch/sm");
  history.machineIs(nullptr);
  reloadMark.follow(nullptr);
  agent = nullptr;
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("The zero-touch provisioning agent's host: runs the agent and serves its state.",
               "zerotouchd");
  app.add_option("--config", options.config, "What this system is and how the host runs")
      ->capture_default_str();
  app.add_option(
      "--initial-values", options.initialValues,
      "A JSON file with values for entities of the state tree, for tests and for trying things out");
  app.add_option("--trace", options.trace, "Trace levels, as in ZeroTouchSm=9 or *=3");
  app.add_flag(
      "--open-tree", options.openTree,
      "Let root write every entity from outside, for tests and for trying things out; never on a switch");
  app.add_flag("--check", options.check,
               "Only say whether the configuration is right: exit code 0, or else 1");
  app.add_flag("--settle", options.settle,
               "Only take back what the last boot has left behind: DISABLE=NextReload, and the log servers");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    return app.exit(error) == 0 ? 0 : exitBadInput;
  }
  if (options.check) return check(options);
  try {
    if (options.settle) return settle(options);
    return run(options);
  } catch (BadInput const& error) {
    say(error.what());
    return exitBadInput;
  } catch (Statebase::InitialValuesError const& error) {
    say(error.what());
    return exitBadInput;
  } catch (std::exception const& error) {
    say(error.what());
    return exitFailed;
  }
}
