// A DHCP answer as attributes of ZeroTouch::IntfDhcpStatus, in the order in which they are to be set: the
// boot-file name comes last, since the agent acts on it. Values that are missing or bad have none.
#pragma once

#include "platform/kel/EntityType.h"
#include "programs/zerotouch-dhclient-script/Environment.h"

namespace Hook {

Kel::ValueMap answerV4(Environment const& environment, Complaints& complaints);
Kel::ValueMap answerV6(Environment const& environment, Complaints& complaints);

}  // namespace Hook
