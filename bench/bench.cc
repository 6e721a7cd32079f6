// What the framework and the agent cost, under simulated time.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/testing/FakeChildRunner.h"
#include "platform/kel/testing/SimulatedTime.h"
#include "zerotouch/agent/ZeroTouchAgent.h"

namespace {

struct Counter : ZeroTouch::Config::NotifieeConst {
  using NotifieeConst::NotifieeConst;
  void onScriptExecTimeout() override { ++count; }
  std::uint64_t count = 0;
};

// Sets an attribute to a new value each time.
void setAttribute(benchmark::State& state) {
  auto const config = Kel::makePtr<ZeroTouch::Config>();
  auto const notifiee = Kel::makePtr<Counter>(config);
  std::uint32_t value = 0;
  for (auto _ : state) config->scriptExecTimeoutIs(++value);
  if (notifiee->count != value) state.SkipWithError("a notification was lost");
}
BENCHMARK(setAttribute);

struct Alarm : Kel::Clock::NotifieeConst {
  explicit Alarm(int& f) : NotifieeConst(Kel::activityManager()->config()->clock()), fired(f) {}
  void onTime() override { ++fired; }
  int& fired;
};

// Arms clocks, each for a time of its own, and lets them fire.
void fireClocks(benchmark::State& state) {
  constexpr int clocks = 10'000;
  Kel::testing::SimulatedTime time;
  int fired = 0;
  std::vector<Kel::Ptr<Alarm>> alarms;
  for (int i = 0; i < clocks; ++i) alarms.push_back(Kel::makePtr<Alarm>(fired));
  for (auto _ : state) {
    fired = 0;
    int place = 0;
    for (auto const& each : alarms) {
      place = (place + 7919) % clocks;  // which have no common divisor
      each->timeMinIs(Kel::now() + 1 + place);
    }
    time.advance(clocks + 1);
    if (fired != clocks) state.SkipWithError("a clock did not fire");
  }
}
BENCHMARK(fireClocks)->Unit(benchmark::kMillisecond);

// An agent on a platform with `ports` routed ports that can run at 10g and 25g, in stateSetupInterfaces.
struct World {
  explicit World(std::int64_t ports) {
    setenv("FILESYSTEM_ROOT", "/nonexistent", 1);
    platform.entityMibStatus->rootIs()->initStatusIs(EntityMib::InitStatus::initialized);
    for (std::int64_t i = 0; i < ports; ++i) {
      auto const port =
          Kel::makePtr<Interface::EthPhyIntfStatus>(Wire::IntfId("Ethernet" + std::to_string(i)));
      port->forwardingModelIs(Interface::IntfForwardingModel::routed);
      port->activeIs(true);
      port->linkModeCapabilitiesIs({.mode10G = true, .mode25G = true});
      platform.episd->intfStatusIs(port);
    }
    platform.config->enabledIs(true);
    agent = platform.createAgent(ZeroTouch::agentCreatorFactory);
  }
  ZeroTouch::ZeroTouchSm& sm() const { return *agent->ztSm(); }

  Kel::testing::SimulatedTime time;
  Kel::testing::FakeChildRunner children;
  ZeroTouch::MountedEntities platform;
  Kel::Ptr<ZeroTouch::AgentCreator> agent;
};

// From stateInit through one retry to the time limit, without interfaces.
void wholeRun(benchmark::State& state) {
  for (auto _ : state) {
    World world(0);
    world.platform.config->maxRunTimeIs(40);
    world.time.advance(1000);
    bool const ended = world.sm().currentState() == ZeroTouch::ProvisioningState::stateShutdown;
    if (!ended || world.sm().retryCount() != 1) state.SkipWithError("the run went another way");
  }
  state.counters["runs/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(wholeRun);

// The pass over all ports on entering stateSetupInterfaces.
void setUpPass(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      World world(state.range(0));
      state.ResumeTiming();
      world.time.settle();
      state.PauseTiming();
      if (static_cast<std::int64_t>(world.sm().intfStatus().size()) != state.range(0)) {
        state.SkipWithError("ports were left out");
      }
    }
    state.ResumeTiming();
  }
}
BENCHMARK(setUpPass)->ArgName("ports")->Arg(4096)->Arg(8192)->Unit(benchmark::kMillisecond);

void toggle(benchmark::State& state) {
  World world(state.range(0));
  world.time.settle();
  for (auto _ : state) world.sm().toggleIntfSpeed();
}
BENCHMARK(toggle)->ArgName("ports")->Arg(4096)->Unit(benchmark::kMillisecond);

}  // namespace
