// The value types that every room shares.
#pragma once

#include <limits>
#include <string>

namespace Kel {

using String = std::string;
using Name = std::string;

// A duration or a point in time (seconds since 1970, as Kel::now() gives it).
using Seconds = double;

// The firing time of a clock that is parked, and a limit that is never reached.
inline constexpr Seconds never = std::numeric_limits<double>::infinity();

}  // namespace Kel
