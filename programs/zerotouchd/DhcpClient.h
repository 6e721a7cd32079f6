// Tells the agent, through the environment, which DHCP client to run.
#pragma once

#include "platform/kel/Types.h"

// ZEROTOUCH_DHCLIENT becomes the shim's path: the one beside this program, as in a build tree, else the
// installed one. It stays as it is when an operator has set it, or when there is no shim. `client`, if not
// empty, is the client that the shim is to run (ZEROTOUCH_REAL_DHCLIENT).
void exportDhcpClient(Kel::String const& client);
