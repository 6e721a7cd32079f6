// The states of provisioning, by names for people and by those of the code.
#pragma once

#include <string>

#include "platform/kel/EntityType.h"

namespace ZeroTouchCommand {

// "asking for addresses (stateDhcpQuery)"; a name that is no state as it is.
std::string stateInWords(std::string const& name);

// The same of where a status (Status.h) stands. What the run has come to is told with stateShutdown.
std::string stateInWords(Kel::Value const& status);

// How the run of a status has ended: "provisioned", "cancelled", "out of time", or "" when it has not.
std::string outcome(Kel::Value const& status);

// Throws WrongUsage, naming `option`, when `name` is no state.
void checkState(std::string const& option, std::string const& name);

}  // namespace ZeroTouchCommand
