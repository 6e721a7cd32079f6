// The picture of a run: its states, what was applied, its ports and its events over time.
#pragma once

#include <string>

#include "programs/zerotouch/report/Run.h"

namespace ZeroTouchCommand {

// An SVG element with its legend, as HTML.
std::string timeline(Run const& run);
std::string timelineLegend();

// The class of the style sheet for a state: calm, work, wait or done.
std::string toneOf(std::string const& state);

}  // namespace ZeroTouchCommand
