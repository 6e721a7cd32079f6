#include "tests/simulation/Runner.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr unsigned maxSteps = 90;

// Ends a child process with the status 1 when it has failed or, under the address sanitizer, has leaked
// memory; else with 0.
[[noreturn]] void endProcess(bool failed) {
#if defined(__SANITIZE_ADDRESS__)
  failed = failed || __lsan_do_recoverable_leak_check() != 0;
#endif
  std::fflush(stdout);
#if defined(COVERAGE)
  std::exit(failed ? 1 : 0);  // which writes the counters
#else
  _exit(failed ? 1 : 0);
#endif
}

// Plays one run. When an invariant does not hold, returns false and leaves the reason in the tally.
bool play(Run const& run, Tally& tally, bool recorded) {
  World world(run.world, run.policy, recorded);
  world.onTransition = [&](State from, State to) { ++tally.transitions[number(from)][number(to)]; };
  auto const holds = [&] {
    if (world.violation.empty()) return true;
    world.note("!! " + world.violation);
    std::snprintf(tally.violation.data(), tally.violation.size(), "%s", world.violation.c_str());
    return false;
  };
  auto const rest = [&] {
    world.finishCleanUp();
    world.time.settle();
    world.check();
    return holds();
  };
  for (auto const& step : run.steps) {
    ++tally.driven[number(world.state())][step.action];
    ++tally.steps;
    apply(world, step);
    if (step.settle) world.check();
    if (!holds()) return false;
  }
  if (!rest()) return false;
  world.note("nothing happens for a while");
  world.time.advance(200);
  if (!rest()) return false;
  world.note("the agent ends");
  world.drop();
  ++tally.runs;
  tally.resumed += world.curl.granted;
  return rest();
}

}  // namespace

int inChild(std::function<bool()> const& body, char const* errors) {
  std::fflush(stdout);
  pid_t const pid = fork();
  if (pid == 0) {
    if (errors != nullptr) dup2(open(errors, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), STDERR_FILENO);
    endProcess(!body());
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

Run runFrom(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  Run run;
  run.world = random();
  if (random() % 2 == 0) run.policy = random();
  run.steps = stepsFrom(random, 20 + static_cast<unsigned>(random() % (maxSteps - 20)));
  return run;
}

std::optional<std::uint64_t> Runner::play(std::uint64_t seed, unsigned count) {
  int const status = inChild([&] {
    for (tally_->seed = seed; tally_->seed < seed + count; ++tally_->seed) {
      if (!::play(runFrom(tally_->seed), *tally_, false)) return false;
    }
    return true;
  });
  return status == 0 ? std::nullopt : std::optional(tally_->seed);
}

// Returns how the run fails ("" for a crash), or nothing when it holds.
std::optional<std::string> Runner::failure(Run const& run, bool recorded) {
  tally_->violation = {};
  char const* const errors = recorded ? nullptr : "/dev/null";
  if (inChild([&] { return ::play(run, *tally_, recorded); }, errors) == 0) return std::nullopt;
  return std::string(tally_->violation.data());
}

Run Runner::shortened(Run run) {
  constexpr std::size_t telling = 20;  // what follows are values
  auto const kind = [](std::optional<std::string> const& text) {
    return text ? text->substr(0, telling) : "holds";
  };
  auto const wanted = kind(failure(run, false));
  for (std::size_t at = run.steps.size(); at-- > 0;) {
    Run shorter = run;
    shorter.steps.erase(shorter.steps.begin() + static_cast<std::ptrdiff_t>(at));
    if (kind(failure(shorter, false)) == wanted) run = std::move(shorter);
  }
  return run;
}

void Runner::print(Run const& run) { failure(run, true); }
