// What the framework itself costs.
#include <benchmark/benchmark.h>

#include "platform/kel/ActivityManager.h"
#include "platform/kel/testing/SimulatedTime.h"
#include "platform/model/zerotouch.h"

namespace {

struct Counter : ZeroTouch::Config::NotifieeConst {
  using NotifieeConst::NotifieeConst;
  void onScriptExecTimeout() override { ++count; }
  std::uint64_t count = 0;
};

// Every set is a change, and is told to each notifiee.
void setAttribute(benchmark::State& state) {
  auto const config = Kel::makePtr<ZeroTouch::Config>();
  std::vector<Kel::Ptr<Counter>> notifiees;
  for (std::int64_t i = 0; i < state.range(0); ++i) notifiees.push_back(Kel::makePtr<Counter>(config));
  std::uint32_t value = 0;
  for (auto _ : state) config->scriptExecTimeoutIs(++value);
  for (auto const& notifiee : notifiees) {
    if (notifiee->count != value) state.SkipWithError("a notification was lost");
  }
}
BENCHMARK(setAttribute)->ArgName("notifiees")->Arg(0)->Arg(1)->Arg(10);

struct Alarm : Kel::Clock::NotifieeConst {
  explicit Alarm(int& f) : NotifieeConst(Kel::activityManager()->config()->clock()), fired(f) {}
  void onTime() override { ++fired; }
  int& fired;
};

// Clocks that exist are armed, each for a time of its own or all for the same, and fire.
void fireClocks(benchmark::State& state) {
  constexpr int clocks = 10'000;
  Kel::testing::SimulatedTime time;
  int fired = 0;
  std::vector<Kel::Ptr<Alarm>> alarms;
  for (int i = 0; i < clocks; ++i) alarms.push_back(Kel::makePtr<Alarm>(fired));
  for (auto _ : state) {
    fired = 0;
    for (int i = 0; i < clocks; ++i) {
      // A fixed permutation: 7919 and the number of clocks have no common divisor.
      int const place = state.range(0) != 0 ? i * 7919 % clocks : 0;
      alarms[static_cast<std::size_t>(i)]->timeMinIs(Kel::now() + 1 + place);
    }
    time.advance(clocks + 1);
    if (fired != clocks) state.SkipWithError("a clock did not fire");
  }
}
BENCHMARK(fireClocks)->ArgName("spread")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The same with the making and the end of the clocks.
void makeClocks(benchmark::State& state) {
  constexpr int clocks = 10'000;
  Kel::testing::SimulatedTime time;
  for (auto _ : state) {
    int fired = 0;
    std::vector<Kel::Ptr<Alarm>> alarms;
    for (int i = 0; i < clocks; ++i) {
      alarms.push_back(Kel::makePtr<Alarm>(fired));
      alarms.back()->timeMinIs(Kel::now() + i);
    }
    time.advance(clocks);
    if (fired != clocks) state.SkipWithError("a clock did not fire");
  }
}
BENCHMARK(makeClocks)->Unit(benchmark::kMillisecond);

}  // namespace
