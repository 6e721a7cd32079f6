// The lease in the client's own file (dhclient.leases(5)).
//
// The DHCPv4 client writes a lease down only after its script has ended, and may be stopped before it comes
// to that, because of what the script said. Without the record the lease could not be handed back.
#pragma once

#include <string>

#include "programs/zerotouch-dhclient-script/Environment.h"

namespace Hook {

// The record of a DHCPv4 answer; empty when there is none, or values that it needs are missing or bad.
std::string leaseRecord(Environment const& environment);

// Appends the record to the file that the variable "ZEROTOUCH_LEASES" names; "" or what went wrong. Nothing
// is done without the variable or a record. A file that is not there is not made.
std::string keepLease(Environment const& environment);

}  // namespace Hook
