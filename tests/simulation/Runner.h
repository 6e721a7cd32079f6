// Plays runs in child processes, so that one that crashes is a failed one like any other.
#pragma once

#include <sys/mman.h>

#include <array>
#include <functional>
#include <optional>

#include "tests/simulation/Actions.h"

// Runs `body` in a child process, whose standard error goes to the file `errors` if that is given. Returns
// the status as of waitpid(): 0 when the body returned true and, under the address sanitizer, nothing leaked.
int inChild(std::function<bool()> const& body, char const* errors = nullptr);

// An object that this process has in common with its children.
template <typename T>
class Shared {
 public:
  Shared() = default;
  Shared(Shared const&) = delete;
  ~Shared() { munmap(object_, sizeof(T)); }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }

 private:
  T* object_ = new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T;
};

// A whole run, as it follows from its seed.
struct Run {
  std::uint64_t world = 0;
  std::uint64_t policy = 0;
  std::vector<Step> steps;
};
Run runFrom(std::uint64_t seed);

// What has been seen over many runs. Kept in memory that is shared with the child processes.
struct Tally {
  static constexpr unsigned states = 10;  // by the number of the state's bit
  std::uint64_t runs = 0;
  std::uint64_t steps = 0;
  std::uint64_t resumed = 0;  // downloads that went on where others had broken off
  std::array<std::array<std::uint64_t, states>, states> transitions{};  // from, to
  std::array<std::array<std::uint64_t, 32>, states> driven{};           // state, action
  std::uint64_t seed = 0;                                               // being played
  std::array<char, 512> violation{};                                    // how it failed; "" for a crash
};

class Runner {
 public:
  // Plays the runs of `count` seeds from `seed` on, and returns the first seed whose run fails.
  std::optional<std::uint64_t> play(std::uint64_t seed, unsigned count);
  // Leaves out the steps without which the run fails in the same way, and returns the rest.
  Run shortened(Run run);
  // Plays it again and prints what happens.
  void print(Run const& run);
  Tally const& tally() const { return *tally_; }

 private:
  std::optional<std::string> failure(Run const& run, bool recorded);

  Shared<Tally> tally_;
};
