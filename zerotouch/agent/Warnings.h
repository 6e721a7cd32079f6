// What goes wrong besides the events of a run, told to operators as events of the system's own.
#pragma once

#include "platform/kel/Log.h"

namespace ZeroTouch {

extern Kel::LogHandle downloadImpossible;  // reason
extern Kel::LogHandle saveFileIgnored;     // value, reason
extern Kel::LogHandle downloadNotUsable;   // what failed, with path and reason
extern Kel::LogHandle dhclientConfigCut;   // path
extern Kel::LogHandle dhcpNotAsked;        // reason
extern Kel::LogHandle dhcpResultsLeft;
extern Kel::LogHandle addressNotActive;  // address and port
extern Kel::LogHandle addressGone;        // address and port
extern Kel::LogHandle bootFileUnusable;     // its name, reason

}  // namespace ZeroTouch
