// What `zerotouchd --check` says of the certificates that platform.toml names.
#pragma once

#include <ostream>

#include "platform/model/policy.h"

// Writes a line for each certificate. Throws BadInput, with file and line, for the first thing that is wrong,
// once all lines are written.
void checkTrust(ZeroTouch::AuthenticityPolicy const& policy, std::ostream& out);
