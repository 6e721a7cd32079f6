// What `zerotouchd --check` says of the certificates that platform.toml names.
#pragma once

#include <ostream>
#include <vector>

#include "platform/model/policy.h"

// Writes a line for each certificate. Returns what is wrong, each with file and line where there are such.
std::vector<Kel::String> checkTrust(ZeroTouch::AuthenticityPolicy const& policy, std::ostream& out);
