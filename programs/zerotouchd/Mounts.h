// Where the entities stand in the state tree, and who may write them from outside.
#pragma once

#include <vector>

#include "platform/model/handles.h"
#include "platform/statebase/Tree.h"

// `open` lets root write all of them, as a platform does from inside: for tests and for trying things out.
void mount(Statebase::Tree& tree, ZeroTouch::MountedEntities const& entities, bool open);
