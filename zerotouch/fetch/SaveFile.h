// The setting that says under which name the startup configuration is saved.
#pragma once

#include "platform/kel/Types.h"

namespace ZeroTouch {

// Why the value of SAVE_FILE, which is not empty, names no file that can be written below the flash; "" when
// it does.
Kel::String saveFileObjection(Kel::String const& value);

}  // namespace ZeroTouch
