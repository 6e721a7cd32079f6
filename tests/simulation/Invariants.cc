// What must be true whenever the loop has come to rest.
#include <csignal>

#include "tests/simulation/World.h"
#include "tests/unit/support/Faults.h"
#include "tests/unit/support/TemporaryFolder.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/fetch/BootFile.h"

namespace {

using enum ZeroTouch::ProvisioningState;

template <typename Collection>
std::set<Wire::IntfId> keys(Collection const& collection) {
  auto const all = collection.keys();
  return {all.begin(), all.end()};
}

}  // namespace

void World::check() {
  if (agent) {
    checkNotStuck();
    checkOwners();
    checkPorts();
    if (state() == stateInit) checkAtRest();
    bool const applied = (state() & (stateSetupSystemIdentity | stateFetchConfig | stateRetryFetchConfig |
                                     stateCopyConfigOrExecScript)) != stateInvalid;
    bool const maybe = state() == stateRetry || state() == stateShutdown;
    std::string const now = identity();
    require(now == (applied || (maybe && !now.empty()) ? identity_ : ""),
            "the identity is [" + now + "], that of the chosen answer [" + identity_ + "]");
  } else {
    for (auto const& start : children.started)
      require(start.child->ended() || !start.signals.empty(), "a child outlives the agent: " + start.argv[0]);
    require(curl.alive() == 0, "a transfer outlives the agent");
  }
  checkEnding();
}

void World::checkNotStuck() {
  require(sm().transitionState() == stateInvalid, "a transition is still pending");
  bool const done = sm().reloadRequested();
  if (state() == stateInit) {
    auto const root = platform.entityMibStatus->root();
    bool const ready = root && root->initStatus() == EntityMib::InitStatus::initialized;
    require(!platform.config->enabled() || !ready, "rests in stateInit, enabled and ready");
    require(!sm().timerActive(), "a timer runs in stateInit");
  } else if (done) {
    require(!sm().timerActive(), "a timer runs after the reload was requested");
  } else {
    require(sm().timerActive(), "stuck: no timer runs");
    auto const timer = sm().timer();
    require(timer && timer->initTime() + timer->timeout() + timer->interval() >= Kel::now(),
            "the timer is late");
    require(Kel::now() <= deadline + 0.001, "the state lasts too long");
  }
  require(state() == stateShutdown || platform.status->enabled() == (state() != stateInit),
          "Status.enabled is wrong");
}

void World::checkOwners() {
  // Every child that runs and was not told to end is in its record, and its state is the one it serves.
  std::set<pid_t> held;
  auto const hold = [&](auto const& child, auto const* devices, char const* what) {
    if (devices != nullptr)
      require(!child == devices->empty(), std::string("devices without a client, or the reverse: ") + what);
    if (!child) return;
    require(!child->ended(), std::string("the record of a child that has ended: ") + what);
    held.insert(child->pid());
  };
  hold(sm().dhclientChildProcess(), &sm().dhclientIntf(), "v4");
  hold(sm().dhclient6ChildProcess(), &sm().dhclient6Intf(), "v6");
  hold(sm().dhclient6StatelessChildProcess(), &sm().dhclient6StatelessIntf(), "stateless");
  auto const noDevices = static_cast<decltype(&sm().dhclientIntf())>(nullptr);
  hold(sm().scriptChildProcess(), noDevices, "script");
  hold(sm().flashFlush(), noDevices, "flush");
  std::erase_if(children.started, [](auto const& start) { return start.child->ended(); });
  for (auto const& start : children.started) {
    bool const script = start.argv.size() == 1;
    // A script may ignore being asked to end; it is not forgotten before it is killed.
    bool const ends = !start.signals.empty() && (!script || start.signals.back() == SIGKILL);
    require(ends || held.contains(start.child->pid()), "a running child without a record");
    if (!start.signals.empty()) continue;
    auto const has = [&](char const* argument) {
      return std::find(start.argv.begin(), start.argv.end(), argument) != start.argv.end();
    };
    auto const where = script || has("-f") ? stateCopyConfigOrExecScript
                       : has("-r")         ? stateRetry | stateShutdown
                       : has("-S")         ? stateStatelessDhcpQuery
                                           : stateDhcpQuery;
    require((where & state()) != stateInvalid, "a child runs in the wrong state");
  }
  require((sm().curlCBData() != nullptr) == (curl.alive() > 0), "a transfer's handles outlive it");
  require(sm().curlCBData() == nullptr || state() == stateFetchConfig, "a transfer runs in the wrong state");
  require(
      sm().curlCBData() == nullptr || (curl.protocols == sm().chosenAnswer()->scheme() && curl.proxy.empty()),
      "a transfer may use another protocol or a proxy");
  require(sm().lastFailureUrl().find("secret") == std::string::npos, "a password is kept");
  require(!sm().curlSockFd() || sm().curlCBData() != nullptr, "a socket's watch outlives the transfer");
  bool const chosen = sm().choosenIntf() != nullptr;
  require(chosen ? state() >= stateSetupSystemIdentity
                 : state() < stateSetupSystemIdentity || state() >= stateRetry,
          "an interface is chosen in the wrong state, or none is");
  for (auto const& [intfId, port] : sm().intfNoSpeedChangePool())
    require(platform.episd->intfStatus(intfId) == port, "a port that is gone is in the pool");
  for (auto const& [intfId, port] : sm().intfLldpPool())
    require(sm().phyIntfStatus(intfId) != nullptr, "an unknown port is in the LLDP pool");
}

// The view of the ports follows the platform while they are set up and during a retry, and is frozen between.
void World::checkPorts() {
  bool const frozen = stateDhcpQuery <= state() && state() < stateRetry;
  require(!frozen || knownPorts() == frozen_,
          "the frozen view changes from " + frozen_ + " to " + knownPorts());
  if (state() != stateSetupInterfaces && state() != stateRetry) return;
  for (auto const& [intfId, port] : platform.episd->intfStatus()) {
    auto const record = sm().phyIntfStatus(intfId);
    require(record && record->ethIntfStatus() == port, "a port is not known");
    bool const routed = port->forwardingModel() == Interface::IntfForwardingModel::routed;
    require(sm().intfStatus().contains(intfId) == routed,
            "a port is registered that is not routed, or the reverse");
    require(sm().pamDesiredIntfDir()->intfDesired(intfId), "no packet socket is wanted");
    auto const ip6 = platform.ip6Config->intf(intfId);
    require(ip6 && ip6->enable() && ip6->acceptRaDefRtr() &&
                ip6->addrSource() == Ip6::AddrSource::routerAdvertisement &&
                ip6->l3Config() == platform.l3ConfigDir->intfConfig(intfId),
            "a port is not set up");
    if (!record) continue;
    require(record->kernelIntfName() == port->deviceName(), "a port goes by another device");
    auto const watch = record->intfPamSm(record->intfName());
    require((watch ? watch->pam() : nullptr) == sm().ethDevPamCollection()->intfPam(intfId),
            "a packet socket without a watch, or the reverse");
    require(watch || !sm().intfLldpPool().contains(intfId), "a port without a watch is in the LLDP pool");
  }
  for (auto const& [intfId, lag] : platform.elisd->intfStatus()) {
    auto const record = sm().lagIntfStatus(intfId);
    require(record && record->ethIntfStatus() == lag, "a port-channel is not known");
    require(record->kernelIntfName() == lag->deviceName(), "a port-channel goes by another device");
    bool const routed = lag->forwardingModel() == Interface::IntfForwardingModel::routed;
    require(sm().intfStatus().contains(intfId) == routed,
            "a port-channel is registered that is not routed, or the reverse");
  }
  // The entries of the chosen interface stay until its identity is taken back, and then until the next retry.
  bool const undone = !sm().choosenIntf() && !sm().awaitsDhcpCleanup();
  auto const gone = [this](Wire::IntfId const& intfId) {
    return !configured_.contains(intfId) && !platform.episd->intfStatus(intfId) &&
           !platform.elisd->intfStatus(intfId);
  };
  for (auto const& intfId : platform.ip6Config->intf().keys())
    require(!undone || !gone(intfId), "the IPv6 entry of an interface that is gone is kept");
  for (auto const& intfId : platform.l3ConfigDir->intfConfig().keys())
    require(!undone || !gone(intfId), "the layer-3 entry of an interface that is gone is kept");
  for (auto const& [intfId, modes] : sm().linkModesOnIntf())
    require(platform.episd->intfStatus(intfId) != nullptr, "speeds of a port that is gone are kept");
  require(sm().phyIntfStatus().size() == platform.episd->intfStatus().size() &&
              sm().lagIntfStatus().size() == platform.elisd->intfStatus().size(),
          "a port that is gone is known");
}

std::string World::knownPorts() const {
  std::string result;
  for (auto const& [intfId, record] : sm().phyIntfStatus())
    result += intfId.stringValue() + (sm().intfStatus().contains(intfId) ? " registered, " : ", ");
  for (auto const& [intfId, record] : sm().lagIntfStatus()) result += intfId.stringValue() + ", ";
  return result;
}

// Everything that a run writes has been taken back.
void World::checkAtRest() {
  require(keys(platform.ipConfig->ipIntfConfig()) == configured_, "IPv4 configuration is left");
  require(keys(platform.ip6Config->intf()) == configured_, "IPv6 configuration is left");
  require(keys(platform.l3ConfigDir->intfConfig()) == configured_, "layer-3 configuration is left");
  require(keys(platform.epicd->intfConfig()) == configured_, "port configuration is left");
  for (auto const& [intfId, config] : platform.epicd->intfConfig())
    require(config->linkModeLocal() == Interface::EthLinkMode::linkModeDefault, "a speed is left");
  require(sm().phyIntfStatus().empty() && sm().lagIntfStatus().empty() && sm().intfStatus().empty() &&
              sm().intfStatus6().empty() && sm().intfStatus6Stateless().empty() &&
              sm().intfLldpPool().empty() && sm().pamDesiredIntfDir()->intfDesired().empty(),
          "interfaces are still registered");
  for (auto const& start : children.started)
    require(start.child->ended() || !start.signals.empty(), "a child runs at rest");
}

// However often it has broken off, the file is what the server has sent last, or what somebody has signed in
// it.
void World::checkDownload() {
  Faults::Suspended const noFaults;
  std::string const file = TemporaryFolder::contentOf("/tmp/zt-download");
  bool const isSigned = !sm().bootFileSigner().empty();
  bool const isSame =
      curl.sent.empty() || (isSigned ? curl.sent.find(file) != std::string::npos : file == curl.sent);
  require(isSame && sm().bytesRead() == (isSigned ? file : curl.sent).size(),
          "the download is [" + file + "], what was sent [" + curl.sent + "]");
}

void World::checkEnding() {
  std::string const settings = TemporaryFolder::contentOf("/tmp/root/flash/zerotouch-config");
  require(settings == (expectDisable ? "DISABLE=NextReload\n" : "(absent)"),
          "the settings file holds " + settings);
  require(reloads_ <= 1, "the reload was requested twice");
  auto const& reload = *platform.reloadConfig;
  require((reloads_ == 1) == (reload.reloadTime() > 0 && reload.reason() == "ZTP RELOAD"),
          "no reload is requested");
  require(reloads_ == 0 || !agent || state() == stateShutdown,
          "the reload was requested before the shutdown");
}

// All that the identity consists of, as one text; "" for none.
std::string World::identity() const {
  std::string result;
  auto const add = [&](std::string const& what, std::string const& value) { result += what + value + " "; };
  for (auto const& [intfId, config] : platform.epicd->intfConfig()) {
    if (config->mtu() != 1500) add("mtu@" + intfId.stringValue() + "=", std::to_string(config->mtu()));
  }
  for (auto const& [intfId, config] : platform.ipConfig->ipIntfConfig()) {
    if (!config->addrWithMask().address.isZero())
      add("ip@" + intfId.stringValue() + "=", config->addrWithMask().stringValue());
  }
  for (auto const& [intfId, config] : platform.ip6Config->intf()) {
    for (auto const& [addr, on] : config->addr())
      add("ip6@" + intfId.stringValue() + "=", addr.stringValue());
  }
  auto const& net = platform.netConfig;
  if (!net->hostname().empty()) add("host=", net->hostname());
  if (!net->domainName().empty()) add("domain=", net->domainName());
  for (auto const& [index, server] : net->nameServer()) add("ns=", server.stringValue());
  for (auto const& [index, server] : net->v6NameServer()) add("ns6=", server.stringValue());
  for (auto const& [vrf, servers] : platform.sysLoggingConfig->vrfLoggingHost()) {
    for (auto const& [name, host] : servers->loggingHost()) add("log=", name);
  }
  for (auto const& [prefix, route] : platform.routingConfig->routeList()->route()) {
    for (auto const& [via, on] : route->via()) add("route=", prefix.stringValue() + ">" + via.stringValue());
  }
  return result;
}

// The same, as it must become once the answer on the chosen interface is applied.
std::string World::identityOfAnswer() const {
  auto const intf = sm().choosenIntf();
  auto const& device = intf->kernelIntfName();
  auto const v4 = platform.dhcpStatus->intfDhcpStatus(device);
  auto const v6 = platform.dhcpStatus->intfDhcp6Status(device);
  auto const rules = ZeroTouch::policy()->dhcp();
  auto const named = [&](auto const& one) {
    return one && !one->bootFileName().empty() &&
           (rules->server().empty() || rules->server().contains(one->server()));
  };
  auto const usable = [&](auto const& one) {
    return named(one) && !ZeroTouch::bootFile(one->serverName(), one->bootFileName()).url.empty();
  };
  bool const better = rules->offers() > 0 && usable(v6) && !usable(v4);
  bool const six = !named(v4) || better;
  auto const answer = six ? v6 : v4;
  if (!named(answer)) return "";
  std::string result;
  auto const add = [&](std::string const& what, std::string const& value) { result += what + value + " "; };
  std::string const at = "@" + intf->intfName() + "=";
  if (answer->mtu() != 0 && platform.epicd->intfConfig(intf->intfId()))
    add("mtu" + at, std::to_string(answer->mtu()));
  auto const& addr = answer->addrWithMask();
  if (!six && !addr.v4().address.isZero()) add("ip" + at, addr.stringValue());
  if (six && !addr.v6().address.isZero()) add("ip6" + at, addr.stringValue());
  if (!six && !answer->hostname().empty()) add("host=", answer->hostname());
  if (!answer->domainName().empty()) add("domain=", answer->domainName());
  for (auto const& [index, server] : answer->nameServer()) add(six ? "ns6=" : "ns=", server.stringValue());
  if (six) return result;
  for (auto const& [name, host] : answer->loggingHost()) add("log=", name);
  for (auto const& [index, gateway] : answer->gateway()) add("route=0.0.0.0/0>", gateway.stringValue());
  for (auto const& [index, route] : answer->staticRoute())
    add("route=", route.prefix.stringValue() + ">" + route.nextHop.stringValue());
  return result;
}
