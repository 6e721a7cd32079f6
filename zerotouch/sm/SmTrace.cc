#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

Kel::TraceFacility traceZeroTouchSm("ZeroTouchSm");

}  // namespace ZeroTouch
