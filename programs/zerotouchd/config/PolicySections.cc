#include "programs/zerotouchd/config/PolicySections.h"

#include "programs/zerotouchd/config/Authenticity.h"

Sections policySections(ZeroTouch::Policy& policy) {
  return {{"authenticity", authenticitySection(*policy.authenticity())}};
}
