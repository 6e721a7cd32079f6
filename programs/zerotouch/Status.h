// Where provisioning stands, for the verbs that show it.
#pragma once

#include "platform/statebase/Client.h"
#include "programs/zerotouch/Terminal.h"

namespace ZeroTouchCommand {

// {time, config, status, sm}; sm is null when no agent is loaded, else the attributes that matter here.
Kel::Value fetchStatus(Statebase::Client& host);

// Two columns: what, and how it is.
Rows statusRows(Kel::Value const& tree);

}  // namespace ZeroTouchCommand
