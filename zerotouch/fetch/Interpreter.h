// The first line of a script, which names its interpreter.
#pragma once

#include "zerotouch/sm/Problem.h"

namespace ZeroTouch {

// Why the script at `path`, which begins with "#!", cannot be run: its interpreter is missing or no program,
// or the line ends as on Windows. Nothing when it can.
Trouble interpreterTrouble(char const* path);

}  // namespace ZeroTouch
