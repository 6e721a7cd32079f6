// Randomness, from the kernel. Simulated in tests.
#pragma once

#include <functional>

namespace Kel {

// A number from 0 up to, but not including, 1.
double random();

// For tests: random() asks `source` instead of the kernel, until an empty one is given.
void randomSourceIs(std::function<double()> source);

}  // namespace Kel
