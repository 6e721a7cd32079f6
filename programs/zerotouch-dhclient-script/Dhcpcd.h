// The variables of dhcpcd (dhcpcd-run-hooks(8)), which the shim has it name as zerotouch-dhclient/dhcpcd
// does.
#pragma once

#include "programs/zerotouch-dhclient-script/Environment.h"

namespace Hook {

// Whether these are dhcpcd's.
bool isOfDhcpcd(Environment const& environment);

// The variables that the ISC client would hand to its script for the same answer.
Environment fromDhcpcd(Environment const& environment);

}  // namespace Hook
