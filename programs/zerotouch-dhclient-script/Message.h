// What the hook makes of the client's variables: the message for the state tree, and the record of the lease.
#pragma once

#include "platform/kel/EntityType.h"
#include "programs/zerotouch-dhclient-script/Environment.h"

namespace Hook {

// A notification on the state tree's socket (platform/statebase/Rpc.h has the methods).
struct Message {
  std::string method;
  Kel::ValueMap params;
};

// An answer replaces the port's record; a failure replaces it with one that holds the reason only; what ends
// a lease removes it. The clean-up, which the host runs itself, removes all records of one protocol. There is
// no message for other reasons, and none when the variables make no sense, which is complained of. Lists and
// texts are limited so that a message always fits into one line of the socket.
std::optional<Message> messageFor(Environment const& environment, Complaints& complaints);

// Whether the host waits for the hook to end, and so cannot answer meanwhile.
bool hostWaits(Environment const& environment);

// The lease in the client's own file (dhclient.leases(5)).
//
// The DHCPv4 client writes a lease down only after its script has ended, and may be stopped before it comes
// to that, because of what the script said. Without the record the lease could not be handed back.

// The record of a DHCPv4 answer; empty when there is none, or values that it needs are missing or bad.
std::string leaseRecord(Environment const& environment);

// The record of a DHCPv6 answer with an address, as the shim reads it to release the lease. The ISC client
// writes its own; for dhcpcd, whose leases end with it, the hook does.
std::string leaseRecord6(Environment const& environment);

// The port and the server of a DHCPv4 answer that names no boot file, as a line; empty for any other.
std::string namelessServer(Environment const& environment);

// Appends the record to the file that the variable "ZEROTOUCH_LEASES" names, which is not made when it is not
// there, and a server without a boot file to "<that file>.nameless", which is; "" or what went wrong. Nothing
// is done without the variable.
std::string keepLease(Environment const& environment);

// Keeps the reports of dhcpcd's ports in order, one at a time until the object goes: whoever says that nobody
// answers is not its client, and may be late. Does nothing for the other client.
class LeaseLock {
 public:
  explicit LeaseLock(Environment const& environment);
  ~LeaseLock();
  LeaseLock(LeaseLock const&) = delete;
  LeaseLock& operator=(LeaseLock const&) = delete;

  // Whether this says that nobody answers on a port which has an answer by now.
  bool isOverdue(Environment const& environment) const;

 private:
  int file_ = -1;
};

}  // namespace Hook
