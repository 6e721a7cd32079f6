// What a configuration script wrote, for people.
#pragma once

#include "platform/kel/Types.h"

namespace ZeroTouch {

// The first few KiB of the file as one line of text: each of its lines is followed by ". ". Empty when there
// is no such file.
Kel::String scriptOutput(char const* path);

}  // namespace ZeroTouch
