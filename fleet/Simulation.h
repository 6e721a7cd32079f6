// Many switches and the one server that they share, under simulated time.
#pragma once

#include <cstddef>
#include <vector>

#include "fleet/Replay.h"

namespace Fleet {

constexpr Kel::Seconds lookWindow = 30;  // of dnsmasq

struct Setting {
  std::uint32_t switches = 1;
  double leasesPerSecond = 0;  // new addresses that the DHCP server finds; 0 when that takes no time
  std::size_t looks = 0;       // takes that time for so many in lookWindow at most; 0: for all
  double bytesPerSecond = 0;   // of the link
  double fileBytes = 0;
  Kel::Seconds startedWithin = 1;
  Kel::Seconds patience = 0;  // after which the simulation ends
  std::uint64_t seed = 1;
};

struct Result {
  std::vector<Kel::Seconds> provisioned;  // when a switch asked for its reload, in order
  std::uint64_t queries = 0;              // of DHCP
  std::uint64_t messages = 0;             // that the DHCP server has got for them
  std::uint64_t lostAnswers = 0;          // that came when the query had ended
  std::uint64_t downloads = 0;
  std::uint64_t givenUp = 0;  // of them
  double bytesSent = 0;
  std::size_t downloadsAtOnce = 0;  // at the most
  std::uint64_t replays = 0;
};

// With the policy that the activity manager has.
Result simulate(Setting const& setting);

}  // namespace Fleet
