// The keys of platform.toml that keep many switches, and servers that fail, out of each other's way:
// [pacing], and some of [download] and [dhcp].
#pragma once

#include "platform/model/policy.h"
#include "programs/zerotouchd/config/Toml.h"

// They write to `policy`, which must outlive the reading.
Sections pacingSections(ZeroTouch::Policy& policy);
