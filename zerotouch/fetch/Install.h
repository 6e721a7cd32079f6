// Where the startup configuration is saved, and what a configuration script wrote.
#pragma once

#include "platform/kel/Types.h"

namespace ZeroTouch {

// Why the value of SAVE_FILE, which is not empty, names no file that can be written below the flash; "" when
// it does.
Kel::String saveFileObjection(Kel::String const& value);

// The first few KiB of the file as one line of text: each of its lines is followed by ". ". Empty when there
// is no such file.
Kel::String scriptOutput(char const* path);

}  // namespace ZeroTouch
