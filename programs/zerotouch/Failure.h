// How a verb that did not succeed ends: what is said on standard error, and the exit code.
#pragma once

#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

enum ExitCode { ok = 0, failed = 1, wrongUsage = 2, notRunning = 3 };

// Of the exception that is being handled.
ExitCode reportFailure(CLI::App const& program, Context const& context);

// Writes out what was printed. Whoever reads our output may stop reading it: no reason for a message.
ExitCode finishOutput(Context const& context);

}  // namespace ZeroTouchCommand
