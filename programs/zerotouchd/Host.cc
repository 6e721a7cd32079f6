#include "programs/zerotouchd/Host.h"

#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Loop.h"
#include "platform/statebase/InitialValues.h"
#include "programs/zerotouchd/Console.h"
#include "programs/zerotouchd/DhcpClient.h"
#include "programs/zerotouchd/Mounts.h"
#include "programs/zerotouchd/ProvisioningSwitch.h"

namespace {

// The host name may be that of an answer until the platform has undone what a killed host left.
Kel::String systemName(HostConfig const& config) {
  if (!config.systemName.empty()) return config.systemName;
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace

Host::Host(HostConfig config, std::string initialValues, bool openTree)
    : config_(std::move(config)), initialValues_(std::move(initialValues)) {
  buildTree(openTree);
  listenToSignals();
  Kel::logSinkIs(Kel::logToSystem);
  // Under a service manager that keeps our standard error, the system log is enough.
  if (std::getenv("JOURNAL_STREAM") == nullptr) Kel::logSinkIs(printEvent);
  // Children that the agent starts while it is made need the socket already.
  serve();
  children_.emplace(config_.runDirectory);
  reloadMark_.emplace(config_.runDirectory);
  decideProvisioning();
  if (config_.linuxAdapter)
    platform_ = std::make_unique<LinuxPlatform>(entities_, config_, reloadMark_->left());
  startAgent();
}

// The agent goes first: its clients are to end before the ports are put back under them.
Host::~Host() {
  server_.reset();
  tree_.unmount("/zerotouch/sm");
  history_.machineIs(nullptr);
  reloadMark_->follow(nullptr);
  agent_ = nullptr;
}

void Host::buildTree(bool openTree) {
  mount(tree_, entities_, openTree);
  tree_.mount("/log/events", events_.entity(), Statebase::Access::readOnly);
  tree_.mount("/log/history", history_.entity(), Statebase::Access::readOnly);
  Kel::activityManager()->config()->cellTypeIs(config_.cellType);
  entities_.config->scriptExecTimeoutIs(config_.scriptExecTimeout);
  entities_.config->maxRunTimeIs(config_.maxRunTime);
  entities_.config->maxDownloadSizeIs(config_.maxDownloadSize);
  applyInitialValues();
}

void Host::applyInitialValues() {
  if (!initialValues_.empty()) Statebase::applyInitialValues(tree_, initialValues_);
}

void Host::listenToSignals() {
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
}

void Host::serve() {
  server_.emplace(tree_, Statebase::Server::Options{
                             .path = config_.socketPath, .group = config_.socketGroup, .roleOf = {}});
  setenv("STATEBASESOCKNAME", config_.socketPath.c_str(), 1);
  exportDhcpClient(config_.dhcpClient);
}

void Host::decideProvisioning() {
  ProvisioningSwitch const provisioning =
      reloadMark_->left()
          ? ProvisioningSwitch{false,
                               "a run of this boot has ended and the reload that follows it is due, says " +
                                   reloadMark_->path()}
          : provisioningAtBoot(config_.runDirectory);
  say(stringValue(provisioning));
  entities_.config->enabledIs(provisioning.on);
  applyInitialValues();  // once more, in case the file knows better
}

void Host::startAgent() {
  Kel::activityManager()->config()->systemNameIs(systemName(config_));
  library_.emplace(config_.library);
  agent_ = entities_.createAgent(library_->factory());
  tree_.mount("/zerotouch/sm", agent_->ztSm(), Statebase::Access::readOnly);
  history_.machineIs(agent_->ztSm());
  reloadMark_->follow(agent_->ztSm());
  if (!reloadMark_->left()) return;
  entities_.reloadConfig->reasonIs("ZTP RELOAD");
  entities_.reloadConfig->reloadTimeIs(Kel::now());
}

int Host::run() {
  sd_notify(0, "READY=1");
  say("ready on " + config_.socketPath);
  return Kel::Loop::instance().run();
}
