#include "programs/zerotouchd/Host.h"

#include <dlfcn.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Loop.h"
#include "platform/linux/Adapter.h"
#include "platform/statebase/InitialValues.h"
#include "programs/zerotouchd/DhcpClient.h"
#include "programs/zerotouchd/Notices.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace {

// The name of the system. By default it is the host name, which must be read once the adapter has undone what
// a killed host left: until then it may be one that DHCP brought.
Kel::String systemName(HostConfig const& config) {
  if (!config.systemName.empty()) return config.systemName;
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace

AgentFactory loadAgent(Kel::String const& library) {
  void* const loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (loaded == nullptr) throw std::runtime_error(Kel::String("cannot load the agent: ") + dlerror());
  void* const symbol = dlsym(loaded, "agentCreatorFactory");
  if (symbol == nullptr) throw std::runtime_error(library + " is no agent library: " + dlerror());
  return reinterpret_cast<AgentFactory>(symbol);
}

Host::Host(HostConfig config, std::string initialValues, bool openTree)
    : config_(std::move(config)), initialValues_(std::move(initialValues)) {
  buildTree(openTree);
  listenToSignals();
  Kel::logSinkIs(Kel::logToSystem);
  // When the service manager keeps our standard error in the journal, each event would stand there twice.
  if (!isInJournal()) Kel::logSinkIs(printEvent);
  // The agent starts children while it is made, and these need the socket.
  serve();
  rememberLastHost();
  children_.emplace(config_.runDirectory);
  reloadMark_.emplace(config_.runDirectory);
  decideProvisioning();
  if (config_.linuxAdapter) platform_ = startAdapter(entities_, config_, reloadMark_->left());
  startAgent();
}

// The agent goes before the adapter, since its DHCP clients have to end before the ports are put back.
Host::~Host() {
  server_.reset();
  if (memory_) memory_->follow(nullptr, nullptr);
  tree_.unmount("/zerotouch/sm");
  history_.machineIs(nullptr);
  agent_ = nullptr;
  reloadMark_->follow(nullptr);  // as its last act, the agent may ask for the shutdown
}

void Host::buildTree(bool openTree) {
  mount(tree_, entities_, openTree);
  tree_.mount("/log/events", events_.entity(), Statebase::Access::readOnly);
  tree_.mount("/log/history", history_.entity(), Statebase::Access::readOnly);
  Kel::activityManager()->config()->cellTypeIs(config_.cellType);
  entities_.config->scriptExecTimeoutIs(config_.scriptExecTimeout);
  entities_.config->maxRunTimeIs(config_.maxRunTime);
  entities_.config->maxDownloadSizeIs(config_.maxDownloadSize);
  entities_.config->proxyFromEnvironmentIs(config_.proxyFromEnvironment);
  entities_.config->installModeIs(config_.installMode);
  // No mount in which the group may write holds the policy: who writes it chooses whom the switch believes.
  tree_.mount("/zerotouch/policy", config_.policy.entity, Statebase::Access::readOnly);
  Kel::activityManager()->localEntityIs(ZeroTouch::policyName, config_.policy.entity);
  applyInitialValues();
}

void Host::applyInitialValues() {
  if (!initialValues_.empty()) Statebase::applyInitialValues(tree_, initialValues_);
}

void Host::listenToSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  Kel::Loop& loop = Kel::Loop::instance();
  for (int const signal : {SIGTERM, SIGINT}) {
    loop.onSignal(signal, [this, &loop, signal] {
      say(std::string("stopping: ") + strsignal(signal));
      lastWords_->say(std::string("was stopped (") + strsignal(signal) + ")");
      sd_notify(0, "STOPPING=1");
      loop.stop(0);
    });
  }
  loop.watchdogIs(true);
}

void Host::serve() {
  server_.emplace(tree_, Statebase::Server::Options{
                             .path = config_.socketPath, .group = config_.socketGroup, .callerOf = {}});
  setenv("STATEBASESOCKNAME", config_.socketPath.c_str(), 1);
  exportDhcpClient(config_);
}

void Host::rememberLastHost() {
  lastWords_.emplace(config_.runDirectory);
  history_.entity()->hostStartsIs(lastWords_->starts());
  history_.entity()->lastHostEndIs(lastWords_->lastEnd());
  if (lastWords_->lastCrashed()) hostRestarted.log(lastWords_->starts(), lastWords_->lastEnd());
}

void Host::decideProvisioning() {
  ProvisioningSwitch const provisioning =
      reloadMark_->left()
          ? ProvisioningSwitch{false,
                               "a run of this boot has ended and the reload that follows it is due, says " +
                                   reloadMark_->path()}
          : provisioningAtBoot(config_.runDirectory);
  say(stringValue(provisioning));
  if (!provisioning.on) offBecause_ = provisioning.reason;
  entities_.config->enabledIs(provisioning.on);
  applyInitialValues();  // once more, since the file may set what was decided here
}

void Host::startAgent() {
  Kel::activityManager()->config()->systemNameIs(systemName(config_));
  agent_ = entities_.createAgent(loadAgent(config_.library));
  tree_.mount("/zerotouch/sm", agent_->ztSm(), Statebase::Access::readOnly);
  history_.machineIs(agent_->ztSm());
  if (config_.keepsHistory) {
    memory_.emplace(ZeroTouch::filePathFromFSRoot(ZeroTouch::historyPath), tree_);
    memory_->follow(agent_->ztSm(), history_.entity());
  }
  reloadMark_->follow(agent_->ztSm());
  if (!offBecause_.empty() && !entities_.config->enabled()) provisioningOff.log(offBecause_);
  if (!reloadMark_->left()) return;
  entities_.reloadConfig->reasonIs("ZTP RELOAD");
  entities_.reloadConfig->reloadTimeIs(Kel::now());
}

int Host::run() {
  sd_notify(0, "READY=1");
  say("ready on " + config_.socketPath);
  return Kel::Loop::instance().run();
}
