// Everything about one port.
#pragma once

#include "programs/zerotouch/ports/PortView.h"

namespace ZeroTouchCommand {

// For people: facts, what DHCP has brought, and what the port has reported. `port` is the platform's record.
std::string everythingAbout(PortView const& view, PortRow const& row, Kel::Value const& port,
                            std::vector<DhcpRow> const& dhcp);

// For programs: an object of what the list of ports does not have.
Kel::Value moreAbout(PortView const& view, PortRow const& row, Kel::Value const& port);

}  // namespace ZeroTouchCommand
