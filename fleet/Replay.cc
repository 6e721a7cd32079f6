#include "fleet/Replay.h"

#include <unistd.h>

#include <algorithm>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/Log.h"
#include "platform/kel/Random.h"
#include "platform/kel/Reactor.h"
#include "platform/kel/testing/FakeChildRunner.h"
#include "platform/kel/testing/SimulatedTime.h"
#include "tests/simulation/FakeCurl.h"
#include "zerotouch/agent/ZeroTouchAgent.h"

namespace Fleet {

namespace {

using State = ZeroTouch::ProvisioningState;

constexpr Kel::Seconds epoch = 1'700'000'000;  // the clocks of the switches are right
constexpr char const* device = "et1";
constexpr char const* address = "10.0.16.1/16";
constexpr std::size_t bodyBytes = 20'000;  // one comes with each second of a download

// Sequence of random numbers that takes no time to set up (SplitMix64).
struct Random {
  std::uint64_t state;
  double operator()() {
    std::uint64_t z = state += 0x9e3779b97f4a7c15;
    z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
    z = (z ^ z >> 27) * 0x94d049bb133111eb;
    return static_cast<double>((z ^ z >> 31) >> 11) * 0x1p-53;
  }
};

// A switch with one port, which works, and a platform that does at once what it is asked for.
class World {
 public:
  explicit World(Switch const& self) : time_(epoch + self.start), random_{self.seed} {
    static std::string const body(bodyBytes, 'x');
    curl_.body = body;
    curl_.passes = 0;
    curl_.hangs = curl_.trickles = true;
    for (char const* const file : {"/tmp/root/flash/zerotouch-config", "/tmp/root/flash/startup-config",
                                   "/run/zerotouch-dhclient.conf", "/run/zerotouch-dhclient6.conf"})
      unlink(file);
    Kel::randomSourceIs([this] { return random_(); });
    children_.onRunAndWait = [this](char const*) {
      platform_.dhcpStatus->intfDhcpStatusDelAll();
      return 0;
    };
    logSink_ = Kel::logSinkIs([this](Kel::LogEvent const& event) {
      if (event.name == "ZTP_RELOAD") does(Output::Kind::reloads);
    });
    addPort();
    platform_.entityMibStatus->rootIs()->initStatusIs(EntityMib::InitStatus::initialized);
    platform_.config->enabledIs(true);
    agent_ = platform_.createAgent(ZeroTouch::agentCreatorFactory);
    states_ = Kel::Reactor(agent_->ztSm(), &ZeroTouch::ZeroTouchSmModel::NotifieeConst::onCurrentState,
                           [this] { handleState(); });
  }
  ~World() {
    states_ = {};
    agent_ = nullptr;
    Kel::logSinkDel(logSink_);
    Kel::randomSourceIs({});
  }
  World(World const&) = delete;
  World& operator=(World const&) = delete;

  // Time passes up to `end`, or until the first wait after `known` outputs has ended.
  void pass(Kel::Seconds end, std::size_t known) {
    auto const ends = [&] {
      serve();
      return Kel::now() >= epoch + end || over(known);
    };
    time_.advanceUntil(ends, std::max(epoch + end - Kel::now(), 0.0));
  }

  void give(Input const& input) {
    pass(input.time, SIZE_MAX - 2);
    time_.advance(std::max(epoch + input.time - Kel::now(), 0.0));
    if (input.kind == Input::Kind::lease) {
      auto const result = platform_.dhcpStatus->intfDhcpStatusIs(device);
      result->reasonIs("BOUND");
      result->addrWithMaskIs(*Wire::IpGenAddrWithMask::fromString(address));
      result->bootFileNameIs("http://10.0.0.1/boot");
    } else {
      curl_.hangs = false;
      agent_->ztSm()->handleCurlSockFd();
      curl_.hangs = true;
    }
  }

  std::vector<Output> const& outputs() const { return outputs_; }

 private:
  void addPort() {
    auto const port = Kel::makePtr<Interface::EthPhyIntfStatus>(Wire::IntfId("Ethernet1"));
    port->deviceNameIs(device);
    port->forwardingModelIs(Interface::IntfForwardingModel::routed);
    port->activeIs(true);
    port->operStatusIs(Interface::OperStatus::up);
    port->linkStatusIs(Interface::LinkStatus::up);
    platform_.aisd->intfStatusIs(port);
    platform_.episd->intfStatusIs(port);
  }

  // Whether a wait that began after these outputs has ended, or the run has.
  bool over(std::size_t known) const {
    if (outputs_.size() <= known) return false;
    auto const last = outputs_.back().kind;
    bool const ended = last == Output::Kind::asksNoMore || last == Output::Kind::downloadsNoMore;
    return last == Output::Kind::reloads || (ended && outputs_.size() - known >= 2);
  }

  void does(Output::Kind kind) { outputs_.push_back({Kel::now() - epoch, kind}); }

  void handleState() {
    State const now = agent_->ztSm()->currentState();
    if (last_ == State::stateDhcpQuery) does(Output::Kind::asksNoMore);
    if (last_ == State::stateFetchConfig) does(Output::Kind::downloadsNoMore);
    if (now == State::stateDhcpQuery) does(Output::Kind::asks);
    if (now == State::stateFetchConfig) does(Output::Kind::downloads);
    last_ = now;
  }

  // The platform: addresses are active as soon as they are configured, and a client has released its lease as
  // soon as it is told to.
  void serve() {
    for (auto const& [intfId, config] : platform_.ipConfig->ipIntfConfig()) {
      auto const wanted =
          config->addrWithMask().address.isZero() ? Wire::IpAddrWithMask{} : config->addrWithMask();
      platform_.ipStatus->ipIntfStatusIs(intfId)->activeAddrWithMaskIs(wanted);
    }
    for (; served_ < children_.started.size(); ++served_) {
      auto const& start = children_.started[served_];
      bool const releases = std::find(start.argv.begin(), start.argv.end(), "-r") != start.argv.end();
      auto const child = start.child;
      if (releases) child->exitedIs(0);
    }
    if (curl_.granted > granted_ && !outputs_.empty()) outputs_.back().resumes = true;
    granted_ = curl_.granted;
  }

  Kel::testing::SimulatedTime time_;
  Kel::testing::FakeChildRunner children_;
  FakeCurl curl_;
  Random random_;
  int logSink_ = 0;
  std::size_t served_ = 0;
  unsigned granted_ = 0;
  State last_ = State::stateInit;
  std::vector<Output> outputs_;
  ZeroTouch::MountedEntities platform_;
  Kel::Ptr<ZeroTouch::AgentCreator> agent_;
  Kel::Reactor states_;
};

}  // namespace

std::vector<Output> replay(Switch const& self, Kel::Seconds end) {
  World world(self);
  for (Input const& input : self.inputs) world.give(input);
  world.pass(end, self.outputs);
  auto const& all = world.outputs();
  return {all.begin() + static_cast<std::ptrdiff_t>(std::min(self.outputs, all.size())), all.end()};
}

}  // namespace Fleet
