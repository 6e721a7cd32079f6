// What a switch does under simulated time, as it follows from what it has been given so far.
//
// Many agents cannot live in one process: paths, environment and the loop belong to the process. But a whole
// run takes microseconds only. So a switch is kept as the list of its inputs, and to learn what it does next
// its run is played again, in a world of its own, from its start.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/kel/Types.h"

namespace Fleet {

// Times are in seconds since the first switch was started.
struct Input {
  enum class Kind : std::uint8_t { lease, file };  // the server's answer has come; all of the file has
  Kel::Seconds time;
  Kind kind;
};

struct Output {
  enum class Kind : std::uint8_t { asks, asksNoMore, downloads, downloadsNoMore, reloads };
  Kel::Seconds time;
  Kind kind;
  bool resumes = false;  // a download that goes on where the last one broke off
};

struct Switch {
  Kel::Seconds start = 0;
  std::uint64_t seed = 0;  // of its random waits
  std::vector<Input> inputs;
  std::size_t outputs = 0;  // that have been acted upon
};

// What it does after these outputs if nothing more is given to it: up to the end of what it then waits for,
// or until `end`. The policy is that of the activity manager. Writes to /tmp and /run, which must be this
// process's own.
std::vector<Output> replay(Switch const& self, Kel::Seconds end);

}  // namespace Fleet
