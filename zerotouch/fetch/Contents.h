// What a boot file is, by its contents.
#pragma once

#include "zerotouch/sm/Problem.h"

namespace ZeroTouch {

// Whether the file is run; all else becomes the startup configuration.
bool isScript(char const* path);

// Why the file, which is to become the startup configuration, can hardly be meant as one; nothing when it
// can. `answer` is that of the file server which brought it.
Trouble doubtsAbout(char const* path, Trouble const& answer);

// Why the script at `path`, which begins with "#!", cannot be run: its interpreter is missing or no program,
// or the line ends as on Windows. Nothing when it can.
Trouble interpreterTrouble(char const* path);

}  // namespace ZeroTouch
