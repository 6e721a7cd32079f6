#include "programs/zerotouchd/config/PolicySections.h"

#include "programs/zerotouchd/config/Authenticity.h"
#include "programs/zerotouchd/config/Pacing.h"

Sections policySections(ZeroTouch::Policy& policy) {
  Sections sections = pacingSections(policy);
  sections["authenticity"] = authenticitySection(*policy.authenticity());
  return sections;
}
