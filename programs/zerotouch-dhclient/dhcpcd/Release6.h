// DHCPv6 releases that the shim sends by itself.
#pragma once

#include <string>

// Hands back all leases of DHCPv6 in the file, which the hook has written: one message each, from the port's
// link-local address to its server (RFC 8415, 18.2.7), for which nobody waits.
void releaseAll6(std::string const& leaseFile);
