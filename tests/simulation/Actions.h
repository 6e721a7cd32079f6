// All that can happen to the agent.
#pragma once

#include <random>

#include "tests/simulation/World.h"

// One thing that happens: which action, and the bits that choose its details.
struct Step {
  unsigned action = 0;
  std::uint64_t bits = 0;
  bool settle = true;  // the loop comes to rest before the next step
};

unsigned actionCount();
char const* actionName(unsigned action);
std::vector<Step> stepsFrom(std::mt19937_64& random, unsigned count);
void apply(World& world, Step const& step);
// Whatever brings a run further: time, answers, addresses, the end of a child.
void progress(World& world, Choice& choice);
