// The events that the host raises itself.
#pragma once

#include "platform/kel/Log.h"

extern Kel::LogHandle hostRestarted;    // how often, what the last one did
extern Kel::LogHandle provisioningOff;  // why
