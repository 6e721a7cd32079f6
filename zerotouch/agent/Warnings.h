// What goes wrong with the disk and its files, told to operators besides the events of a run.
#pragma once

#include "platform/kel/Log.h"

namespace ZeroTouch {

extern Kel::LogHandle downloadImpossible;  // reason
extern Kel::LogHandle saveFileIgnored;     // value, reason
extern Kel::LogHandle downloadNotUsable;   // what failed, with path and reason
extern Kel::LogHandle dhclientConfigCut;   // path

}  // namespace ZeroTouch
