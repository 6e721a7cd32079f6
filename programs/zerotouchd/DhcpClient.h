// Which DHCP client the agent runs. It is told through the environment: ZEROTOUCH_DHCLIENT names what the
// agent runs, which usually is the shim, and ZEROTOUCH_REAL_DHCLIENT the client that the shim drives: the
// ISC client, or dhcpcd.
#pragma once

#include "programs/zerotouchd/config/HostConfig.h"

// Throws BadInput when an operator has named a client that cannot be executed, in platform.toml or in the
// environment.
void checkDhcpClient(HostConfig const& config);

// Where the client is looked for: what platform.toml or else the environment names, or else the usual places,
// which are those of the shim (programs/zerotouch-dhclient/Client.cc).
std::vector<Kel::String> dhcpClients(HostConfig const& config);
// That there is none at any of these places; "" when there is one.
Kel::String missingDhcpClient(HostConfig const& config);

// Sets ZEROTOUCH_REAL_DHCLIENT if platform.toml names a client, and ZEROTOUCH_DHCLIENT, unless an operator
// has set it, to the shim's path: the one beside this program, as in a build tree, else the installed one.
// Without a shim it stays unset.
void exportDhcpClient(HostConfig const& config);
