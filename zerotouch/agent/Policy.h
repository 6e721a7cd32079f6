// What the host's file asks for beyond the agent's usual behaviour.
#pragma once

#include "platform/model/policy.h"

namespace ZeroTouch {

// The name under which the host makes the policy known to the activity manager, before it creates the agent.
constexpr char const* policyName = "zerotouch/policy";

// That policy; one in which everything is off, when the host has made none known.
Kel::Ptr<Policy const> policy();

}  // namespace ZeroTouch
