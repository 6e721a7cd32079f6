// The trace facility of the state machine. Lines begin with the class and the function.
#pragma once

#include "platform/kel/Trace.h"

namespace ZeroTouch {

extern Kel::TraceFacility traceZeroTouchSm;

}  // namespace ZeroTouch

#define SM_TRACE(level, text) \
  KEL_TRACE(::ZeroTouch::traceZeroTouchSm, level, "ZeroTouchSm::" << __func__ << text)
