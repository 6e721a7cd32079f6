// Starting child processes.
#pragma once

#include "platform/kel/Child.h"

namespace ZeroTouch {

// Starts argv[0] (null-terminated `argv`, the caller's) and returns its record; a reactor on the record
// learns of the end. A path, when not null, receives that stream: created if missing, truncated, mode 0644. A
// stream whose path is null or cannot be opened is the agent's own.
Kel::Ptr<Kel::ChildSiginfo> runCmd(char** argv, char const* stdoutPath, char const* stderrPath);

}  // namespace ZeroTouch
