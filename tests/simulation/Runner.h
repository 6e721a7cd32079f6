// Plays runs in child processes, so that one that crashes is a failed one like any other.
#pragma once

#include <array>
#include <optional>

#include "tests/simulation/Actions.h"

// Ends a child process with the status 1 when it has failed or, under the address sanitizer, has leaked
// memory; else with 0.
[[noreturn]] void endProcess(bool failed);

// A whole run, as it follows from its seed.
struct Run {
  std::uint64_t world = 0;
  std::vector<Step> steps;
};
Run runFrom(std::uint64_t seed);

// What has been seen over many runs. Kept in memory that is shared with the child processes.
struct Tally {
  static constexpr unsigned states = 10;  // by the number of the state's bit
  std::uint64_t runs = 0;
  std::uint64_t steps = 0;
  std::array<std::array<std::uint64_t, states>, states> transitions{};  // from, to
  std::array<std::array<std::uint64_t, 32>, states> driven{};           // state, action
  std::uint64_t seed = 0;                                               // being played
  std::array<char, 512> violation{};                                    // how it failed; "" for a crash
};

class Runner {
 public:
  Runner();
  ~Runner();
  Runner(Runner const&) = delete;
  Runner& operator=(Runner const&) = delete;

  // Plays the runs of `count` seeds from `seed` on, and returns the first seed whose run fails.
  std::optional<std::uint64_t> play(std::uint64_t seed, unsigned count);
  // Leaves out the steps without which the run fails in the same way, and returns the rest.
  Run shortened(Run run);
  // Plays it again and prints what happens.
  void print(Run const& run);
  Tally const& tally() const { return *tally_; }

 private:
  std::optional<std::string> failure(Run const& run, bool recorded);

  Tally* tally_;
};
