#include "programs/zerotouchd/config/PolicySections.h"

#include "programs/zerotouchd/config/Pacing.h"

Sections policySections(ZeroTouch::Policy& policy) { return pacingSections(policy); }
