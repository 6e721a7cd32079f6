// What the flash remembers of the runs of this switch. The host writes it (programs/zerotouchd/history), and
// it can be read when no host runs any more.
#pragma once

#include <string>

#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

struct Memory {
  Kel::Seconds time = 0;  // when it was written
  Kel::Value runs;        // a list of summaries, the last run last
  Kel::Value tree;        // parts of the state tree as of that time
};

// Throws Refused with a reason when there is none, or none that makes sense.
Memory readMemory();

// Parts of the state tree: from the host or, when none runs, as the flash remembers them, which is said on
// standard error. Throws what Statebase::Client throws when there is neither.
Snapshot lastKnown(Context const& context, Snapshot::Paths const& paths);

// The status. When no host runs but the flash remembers a run, that is shown before the failure is thrown.
void showStatusOrLastRun(Context const& context);

}  // namespace ZeroTouchCommand
