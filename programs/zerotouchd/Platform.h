// What the host makes of the entities that the agent is given: where they stand in the state tree, and the
// adapter that keeps them true to this system.
#pragma once

#include <memory>

#include "platform/model/handles.h"
#include "platform/statebase/Tree.h"
#include "programs/zerotouchd/config/HostConfig.h"

namespace Linux {
class Adapter;
}

// Mounts them. `open` lets root write all of them, as a platform does from inside: for tests and for trying
// things out.
void mount(Statebase::Tree& tree, ZeroTouch::MountedEntities const& entities, bool open);

// Starts the Linux adapter on them. `takeOver`: what an earlier host of this boot has applied is kept, not
// undone.
std::unique_ptr<Linux::Adapter> startAdapter(ZeroTouch::MountedEntities const& entities,
                                             HostConfig const& config, bool takeOver);
