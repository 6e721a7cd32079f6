#include "tests/simulation/World.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "platform/kel/Format.h"
#include "platform/kel/Random.h"
#include "zerotouch/agent/Policy.h"

namespace {

constexpr char const* root = "/tmp/root";
constexpr Kel::Seconds beginning = 1'700'000'000;

// A socket on which an LLDP frame waits.
class Pam : public Wire::Pam {
 public:
  using Wire::Pam::Pam;
  std::vector<std::uint8_t> rxPkt() override {
    return {0x01, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1, 0x88, 0xcc};
  }
};

}  // namespace

World::World(std::uint64_t bits, std::uint64_t policy, bool recorded) : recorded_(recorded), random_(policy) {
  Choice choice(bits);
  drawPolicy(policy);
  namespace fs = std::filesystem;
  setenv("FILESYSTEM_ROOT", root, 1);
  fs::create_directories(fs::path(root) / "flash");
  for (char const* const file : {"/tmp/root/flash/zerotouch-config", "/tmp/root/flash/startup-config",
                                 "/run/zerotouch-dhclient.conf", "/run/zerotouch-dhclient6.conf"})
    unlink(file);
  Kel::activityManager()->config()->cellTypeIs(choice.chance(4) ? "modular" : "fixed");
  if (choice.chance(2)) platform.fileReplicationStatus->entryIs("RedSup")->synchronizedIs(choice.chance(2));
  cleanUp = choice.among({CleanUp::prompt, CleanUp::prompt, CleanUp::later, CleanUp::never});
  children.onRunAndWait = [this](char const*) {
    bool const six = std::string(std::getenv("reason")) == "CLEANUP6";
    standStill(cleanUpTakes);
    if (cleanUp == CleanUp::prompt) removeResults(six);
    if (cleanUp == CleanUp::later) (six ? cleansUp6_ : cleansUp_) = true;
    return cleanUp == CleanUp::never ? 1 : 0;
  };
  curl.passes = static_cast<int>(choice.of(8));
  if (choice.chance(2)) curl.body = "#!/bin/sh\n";
  for (unsigned i = 0; i < portCount; ++i) {
    if (!choice.chance(3)) addPort(i, choice);
  }
  if (choice.chance(2)) {
    auto const own = port(choice.of(portCount));
    configured_.insert(own);
    platform.epicd->intfConfigIs(own);
    platform.ipConfig->ipIntfConfigIs(own);
    platform.ip6Config->intfIs(own);
    platform.l3ConfigDir->intfConfigIs(own);
  }
  logSink_ = Kel::logSinkIs([this](Kel::LogEvent const& event) {
    if (event.severity <= 4) warned_ = true;
    require(event.message.find("secret") == std::string::npos, "a password is shown");
    if (event.name == "ZTP_CONFIG_DOWNLOAD_SUCCESS" && event.message.find("startup-config") < 30)
      expectDisable = true;
    if (event.name == "ZTP_EXEC_SCRIPT" || event.name == "ZTP_CONFIG_DOWNLOAD_SUCCESS") {
      bool const mustBeSigned = !ZeroTouch::policy()->authenticity()->signers().empty();
      require(!mustBeSigned || !sm().bootFileSigner().empty(), "what nobody has signed is used");
    }
    if (event.name == "ZTP_RELOAD") ++reloads_;
    note("  " + event.name + ": " + event.message);
  });
  // A port becomes routed once a layer-3 interface is wanted.
  using enum Interface::IntfForwardingModel;
  forwarding_ =
      Kel::Reactor(platform.l3ConfigDir, &L3::Intf::ConfigDir::NotifieeConst::onIntfConfig,
                   [this](Wire::IntfId const& id) {
                     if (auto const intf = platform.episd->intfStatus(id))
                       intf->forwardingModelIs(platform.l3ConfigDir->intfConfig(id) ? routed : bridged);
                   });
  agent = platform.createAgent(ZeroTouch::agentCreatorFactory);
  stateWatch_ = Kel::Reactor(agent->ztSm(), &ZeroTouch::ZeroTouchSmModel::NotifieeConst::onCurrentState, this,
                             &World::handleState);
  sockets_ =
      Kel::Reactor(agent->ztPamMan()->pamDesiredIntfDir(),
                   &Interface::PamDesiredIntfDir::NotifieeConst::onIntfDesired, this, &World::openSocket);
}

World::World() : World(5, 0, false) {
  for (unsigned i : {0U, 1U, 2U}) {
    Choice choice(workingPort);
    addPort(i, choice);
    if (i > 0) platform.raPacketStatus->raPacketIs(port(i))->managedIs(i == 1);
  }
  platform.entityMibStatus->rootIs()->initStatusIs(EntityMib::InitStatus::initialized);
}

World::~World() {
  drop();
  Kel::logSinkDel(logSink_);
  Kel::randomSourceIs({});
  Kel::activityManager()->localEntityDel(ZeroTouch::policyName);
}

void World::drawPolicy(std::uint64_t bits) {
  auto const policy = Kel::makePtr<ZeroTouch::Policy>();
  Kel::activityManager()->localEntityIs(ZeroTouch::policyName, policy);
  Kel::randomSourceIs([this] { return static_cast<double>(random_() >> 11) * 0x1p-53; });
  if (bits == 0) return;
  Choice choice(bits);
  policy->pacing()->startJitterIs(choice.among({0, 10, 300}));
  policy->pacing()->retryJitterIs(choice.among({0.0, 0.5, 2.0}));
  policy->pacing()->retryBackoffMaxIs(choice.among({0, 20, 300}));
  policy->pacing()->retryAfterIs(choice.chance(2));
  policy->download()->stallLimitIs(choice.among({0, 3, 30}));
  policy->download()->resumeIs(choice.chance(2));
  policy->download()->requireLengthIs(choice.chance(2));
  policy->download()->redirectsIs(
      choice.among({ZeroTouch::RedirectPolicy::keep, ZeroTouch::RedirectPolicy::follow,
                    ZeroTouch::RedirectPolicy::refuse}));
  policy->dhcp()->afterFailureIs(choice.chance(2) ? ZeroTouch::AfterFailure::othersFirst
                                                  : ZeroTouch::AfterFailure::same);
  policy->dhcp()->offersIs(choice.among({0, 2, 40}));
  policy->dhcp()->clientTimingIs(choice.chance(2) ? ZeroTouch::ClientTiming::rfc
                                                  : ZeroTouch::ClientTiming::brisk);
  if (choice.chance(4)) policy->authenticity()->signersIs(PROJECT_FOLDER "/tests/fuzz/signers.pem");
  if (!choice.chance(3)) return;
  policy->dhcp()->serverIs("10.0.0.1");
  policy->dhcp()->serverIs("00:03:00:01");
}

void World::drop() {
  hostEnds = true;
  bool const succeeds = agent && sm().flashFlush() && sm().mayActIn(sm().stateCopyConfigOrExecScript());
  expectDisable = expectDisable || succeeds;
  stateWatch_ = {};
  sockets_ = {};
  agent = nullptr;
}

// Devices that /proc/sys/net/ipv6/conf knows, but for the last two.
Kel::Name World::device(unsigned index) { return std::array{"lo", "all", "default", "et4", "po1"}[index]; }

void World::addPort(unsigned index, Choice& choice) {
  using enum Interface::IntfForwardingModel;
  auto const status = Kel::makePtr<Interface::EthPhyIntfStatus>(port(index));
  status->deviceNameIs(device(index));
  status->forwardingModelIs(platform.l3ConfigDir->intfConfig(port(index)) ? routed : bridged);
  status->activeIs(!choice.chance(8));
  status->operStatusIs(choice.chance(4) ? Interface::OperStatus::down : Interface::OperStatus::up);
  status->linkStatusIs(choice.chance(4) ? Interface::LinkStatus::down : Interface::LinkStatus::up);
  Interface::EthLinkModeSet capabilities;
  capabilities.mode10G = choice.chance(2);
  capabilities.mode25G = choice.chance(2);
  capabilities.mode40G = choice.chance(2);
  status->linkModeCapabilitiesIs(capabilities);
  status->autonegCapabilityIs(choice.chance(2) ? Interface::AutonegCapability::capable
                                               : Interface::AutonegCapability::none);
  platform.aisd->intfStatusIs(status);
  platform.episd->intfStatusIs(status);
}

void World::removePort(unsigned index) {
  platform.episd->intfStatusDel(port(index));
  platform.aisd->intfStatusDel(port(index));
}

void World::report(unsigned index, bool six, Kel::String const& reason) {
  auto const& results = platform.dhcpStatus;
  if (six) {
    results->intfDhcp6StatusDel(device(index));
    results->intfDhcp6StatusIs(device(index))->reasonIs(reason);
  } else {
    results->intfDhcpStatusDel(device(index));
    results->intfDhcpStatusIs(device(index))->reasonIs(reason);
  }
}

void World::answer(unsigned index, bool six, Choice& choice) {
  report(index, six, six ? "BOUND6" : "BOUND");
  auto const result = six ? platform.dhcpStatus->intfDhcp6Status(device(index))
                          : platform.dhcpStatus->intfDhcpStatus(device(index));
  unsigned const n = answers_++ % 200 + 1;  // in every value, so that no two answers look the same
  auto const ip = [&](char const* v4, char const* v6) {
    return *Wire::IpGenAddr::fromString(Kel::format(six ? v6 : v4, n));
  };
  if (!choice.chance(8)) {
    result->addrWithMaskIs(
        *Wire::IpGenAddrWithMask::fromString(Kel::format(six ? "2001:db8::%d/64" : "10.0.%d.5/24", n)));
  }
  if (choice.chance(2)) result->mtuIs(1500 + n);
  if (choice.chance(2)) result->hostnameIs(Kel::format("sw%d", n));
  if (choice.chance(2)) result->domainNameIs(Kel::format("d%d.net", n));
  if (choice.chance(2)) result->nameServerIs(0, ip("10.1.%d.2", "2001:db8:1::%d"));
  if (choice.chance(2)) {
    auto const host = Kel::format("10.2.%d.4", n);
    result->loggingHostIs(host, {host, 514});
    result->staticRouteIs(0, {*Wire::IpAddrWithMask::fromString(Kel::format("10.3.%d.0/24", n)),
                              *Wire::IpAddr::fromString("10.0.0.9")});
    result->gatewayIs(0, ip("10.4.%d.1", "2001:db8:4::%d"));
  }
  result->serverIs(n % 4 == 0 ? "10.9.9.9" : six ? "00:03:00:01" : "10.0.0.1");
  if (choice.chance(6)) result->serverNameIs(Kel::format("10.5.%d.1", n));
  result->bootFileNameIs(choice.among({"http://h/c", "https://h/c", "ftp://u:secret@h/c", "tftp://h/c",
                                       "http://h/c", "gopher://h/c", "cfg", ""}));
  note(Kel::format("  (answer %d: %s, boot file '%s')", n, result->addrWithMask().stringValue(),
                   result->bootFileName()));
}

void World::removeResults(bool six) {
  if (six) {
    platform.dhcpStatus->intfDhcp6StatusDelAll();
  } else {
    platform.dhcpStatus->intfDhcpStatusDelAll();
  }
}

void World::addressesAre(bool active) {
  for (auto const& [intfId, config] : platform.ipConfig->ipIntfConfig())
    platform.ipStatus->ipIntfStatusIs(intfId)->activeAddrWithMaskIs(
        active && !config->addrWithMask().address.isZero() ? config->addrWithMask() : Wire::IpAddrWithMask{});
  for (auto const& [intfId, config] : platform.ip6Config->intf()) {
    auto const status = platform.ip6Status->intfIs(intfId);
    status->addrDelAll();
    if (!active) continue;
    for (auto const& [addr, on] : config->addr()) status->addrIs(addr);
  }
}

void World::hearLldp(unsigned index) {
  if (auto const pam = sm().ethDevPamCollection()->intfPam(port(index)))
    Kel::Ptr<Wire::Pam>(const_cast<Wire::Pam*>(pam.get()))->readableCountIs(pam->readableCount() + 1);
}

// Opens a packet socket when it is wanted, otherwise closes it.
void World::openSocket(Wire::IntfId const& intfId) {
  auto const& open = agent->ztPamMan()->ethDevPamCollection();
  if (agent->ztPamMan()->pamDesiredIntfDir()->intfDesired(intfId)) {
    open->intfPamIs(Kel::makePtr<Pam>(intfId));
  } else {
    open->intfPamDel(intfId);
  }
}

void World::socketChanges(unsigned index) {
  auto const& open = agent->ztPamMan()->ethDevPamCollection();
  open->intfPam(port(index)) ? open->intfPamDel(port(index)) : openSocket(port(index));
}

std::vector<Kel::Ptr<Kel::ChildSiginfo>> World::running() const {
  std::vector<Kel::Ptr<Kel::ChildSiginfo>> result;
  for (auto const& start : children.started) {
    if (!start.child->ended()) result.push_back(start.child);
  }
  return result;
}

void World::finishCleanUp() {
  if (std::exchange(cleansUp_, false)) removeResults(false);
  if (std::exchange(cleansUp6_, false)) removeResults(true);
}

// Whether the child that was started last has flushed it, or its program was missing.
bool World::flashIsFlushed() {
  if (children.started.empty()) return false;
  auto const& [child, argv, descriptors, signals] = children.last();
  bool const missing = child->exitStatus() == 127;
  return argv == std::vector<Kel::String>{"/bin/sync", "-f", "/tmp/root/flash"} && signals.empty() &&
         child->statusCode() == Kel::ChildSiginfo::exited && (child->exitStatus() == 0 || missing);
}

void World::standStill(Kel::Seconds seconds) {
  Kel::Loop::instance().simulate(Kel::now() + seconds);
  deadline += seconds + 5;  // the next tick is counted from the late one
}

void World::note(std::string const& text) const {
  if (!recorded_) return;
  std::string const where = agent && agent->ztSm() ? stringValue(state()) : "";
  std::printf("%10.3f s  %-28s %s\n", Kel::now() - beginning, where.c_str(), text.c_str());
  std::fflush(stdout);  // what comes next may end the process
}

void World::handleState() {
  State const now = state();
  onTransition(last_, now);
  require(Kel::now() <= deadline + 0.001, std::string(stringValue(last_)) + " was left too late");
  deadline = Kel::now() + longestTimeIn(sm());
  require(now != State::stateRetry || last_ != State::stateSetupSystemIdentity || identity().empty(),
          "an identity that did not work is left");
  if (now == State::stateSetupSystemIdentity) identity_ = identityOfAnswer();
  auto const cause = sm().transitionCause();
  require(mayFollow(last_, now, cause), std::string(stringValue(now)) + " was entered from " +
                                            stringValue(last_) + " with the cause " + stringValue(cause));
  if (cause == ZeroTouch::TransitionCause::scriptSucceeded) {
    require(flashIsFlushed() || hostEnds, "a script has ended the run, and the flash is not flushed");
    expectDisable = true;
  }
  require(!sm().transitionReason().empty(), "a change of state has no reason");
  bool const failed = now == State::stateRetry || now == State::stateRetryFetchConfig;
  require(!failed || warned_,
          "an attempt has failed without an event that says why: " + sm().transitionReason());
  require(!failed || (sm().lastFailureState() == last_ && sm().lastFailureTime() == Kel::now()),
          "the failure is not kept");
  require(!failed || !sm().whatToDo().empty(), "nobody is told what to do: " + sm().transitionReason());
  if ((now & (State::stateDhcpQuery | State::stateSetupSystemIdentity | State::stateFetchConfig |
              State::stateCopyConfigOrExecScript)) != State::stateInvalid)
    warned_ = false;
  if (now == State::stateDhcpQuery) frozen_ = knownPorts();
  if (now == State::stateCopyConfigOrExecScript) checkDownload();
  last_ = now;
  note("-> " + std::string(stringValue(now)));
}
