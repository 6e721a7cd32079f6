// The keys of platform.toml that turn on what goes beyond the agent's usual behaviour.
#pragma once

#include "platform/model/policy.h"
#include "programs/zerotouchd/config/Toml.h"

// What they are called, by section, and what takes their values. They write to `policy`, which must outlive
// the reading.
Sections policySections(ZeroTouch::Policy& policy);
