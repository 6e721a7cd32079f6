// The agent in a simulated world where anything can happen at any time: it is never stuck, leaves nothing
// behind, and does nothing that it must not. SEED=N plays one run and prints it; SECONDS_TO_PLAY=N plays new
// runs for that long.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "platform/kel/Loop.h"
#include "tests/simulation/Runner.h"

namespace {

constexpr unsigned batch = 100;
constexpr unsigned fixedSeeds = 1'500;

State stateOf(unsigned number) { return static_cast<State>(1u << number); }

void explain(Runner& runner, std::uint64_t seed) {
  std::printf("seed %llu fails; shortened, it goes like this:\n", static_cast<unsigned long long>(seed));
  runner.print(runner.shortened(runFrom(seed)));
  ADD_FAILURE() << "replay with: SEED=" << seed << " simulation_tests";
}

class Simulation : public ::testing::Test {
 protected:
  // Plays runs and returns whether all hold; prints the shortened history of the first that does not.
  bool hold(std::uint64_t seed, unsigned count) {
    auto const failed = runner.play(seed, count);
    if (failed) explain(runner, *failed);
    return !failed;
  }
  Runner runner;
};

}  // namespace

TEST_F(Simulation, known_runs_hold_and_reach_everything) {
  if (char const* const seed = std::getenv("SEED")) {
    if (hold(std::strtoull(seed, nullptr, 10), 1)) runner.print(runFrom(std::strtoull(seed, nullptr, 10)));
    return;
  }
  for (std::uint64_t seed = 1; seed <= fixedSeeds; seed += batch) {
    if (!hold(seed, batch)) return;
  }
  EXPECT_GT(runner.tally().resumed, 0U);
  // Every transition that may happen has happened, and in every state everything has happened.
  for (unsigned to = 0; to < Tally::states; ++to) {
    for (unsigned from = 0; from < Tally::states; ++from) {
      EXPECT_EQ(runner.tally().transitions[from][to] > 0, mayFollow(stateOf(from), stateOf(to)))
          << stringValue(stateOf(from)) << " to " << stringValue(stateOf(to));
    }
    for (unsigned action = 0; action < actionCount(); ++action)
      EXPECT_GT(runner.tally().driven[to][action], 0U)
          << stringValue(stateOf(to)) << ": " << actionName(action);
  }
}

TEST_F(Simulation, new_runs_hold) {
  if (std::getenv("SEED") != nullptr) GTEST_SKIP() << "plays one run only";
  char const* const seconds = std::getenv("SECONDS_TO_PLAY");
  Kel::Seconds const end = Kel::now() + (seconds != nullptr ? std::strtod(seconds, nullptr) : 5);
  std::uint64_t seed = std::random_device()();
  seed = seed << 20 | 1 << 19;
  for (; Kel::now() < end; seed += batch) {
    if (!hold(seed, batch)) return;
  }
  std::printf("%llu runs, %llu steps\n", static_cast<unsigned long long>(runner.tally().runs),
              static_cast<unsigned long long>(runner.tally().steps));
}
