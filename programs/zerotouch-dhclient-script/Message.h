// From the client's variables to what the state tree is told.
#pragma once

#include <optional>

#include "platform/kel/EntityType.h"
#include "programs/zerotouch-dhclient-script/Complaints.h"
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

// Whether the host waits for the end of the hook, and so cannot answer in the meantime.
bool hostWaits(Environment const& environment);

}  // namespace Hook
