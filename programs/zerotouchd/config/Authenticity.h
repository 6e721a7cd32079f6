// [authenticity] of platform.toml: which boot files and servers are believed.
#pragma once

#include "platform/model/policy.h"
#include "programs/zerotouchd/config/Toml.h"

Section authenticitySection(ZeroTouch::AuthenticityPolicy& policy);

// Throws BadInput for a file whose keys do not go together, so that nobody relies on one that has no effect.
void checkAuthenticity(ZeroTouch::AuthenticityPolicy const& policy, Kel::String const& file);
