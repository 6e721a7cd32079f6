#include "platform/kel/Random.h"

#include <sys/random.h>

#include <cstdint>

#include "platform/kel/Clock.h"

namespace Kel {

namespace {

std::function<double()>& replacement() {
  static std::function<double()> source;
  return source;
}

}  // namespace

double random() {
  if (replacement()) return replacement()();
  std::uint64_t bits = 0;
  // Without the flag, a kernel that has just booted could keep the loop waiting. What it has no randomness
  // for is told apart by the time at least.
  if (getrandom(&bits, sizeof bits, GRND_NONBLOCK) != sizeof bits)
    bits = static_cast<std::uint64_t>(now() * 1e6) * 0x9e3779b97f4a7c15;
  return static_cast<double>(bits >> 11) * 0x1p-53;
}

void randomSourceIs(std::function<double()> source) { replacement() = std::move(source); }

}  // namespace Kel
