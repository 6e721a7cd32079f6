// Where the entities stand in the state tree, and who may write them from outside.
#pragma once

#include <vector>

#include "platform/statebase/Tree.h"
#include "zerotouch/agent/MountedEntities.h"

void mount(Statebase::Tree& tree, ZeroTouch::MountedEntities const& entities);
