// The events that the host raises itself.
#pragma once

#include "platform/kel/Log.h"

extern Kel::LogHandle provisioningOff;  // why
