// Why the state machine changes its state, told from what it shows of itself when it asks for the change.
#pragma once

#include "platform/model/agent.h"

// `late`: the timer of the present state has run out.
Kel::String reasonFor(ZeroTouch::ZeroTouchSmModel const& machine, ZeroTouch::ProvisioningState to, bool late);
