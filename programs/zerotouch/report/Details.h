// The tables of a report.
#pragma once

#include <string>

#include "programs/zerotouch/report/Run.h"

namespace ZeroTouchCommand {

// States, events, ports, what was applied, and timers, as HTML.
std::string details(Run const& run);

}  // namespace ZeroTouchCommand
