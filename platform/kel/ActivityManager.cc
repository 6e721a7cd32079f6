#include "platform/kel/ActivityManager.h"

namespace Kel {

Ptr<ActivityManager> const& activityManager() {
  static Ptr<ActivityManager> const manager = makePtr<ActivityManager>();
  return manager;
}

}  // namespace Kel
