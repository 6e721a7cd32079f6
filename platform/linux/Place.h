// Where a file in the run directory was written: what it remembers means nothing in another boot or
// namespace.
#pragma once

#include "platform/kel/Types.h"

namespace Linux {

// One line without its end. `kind` is a file of /proc/self/ns, as "net".
Kel::String thisPlace(char const* kind);

}  // namespace Linux
