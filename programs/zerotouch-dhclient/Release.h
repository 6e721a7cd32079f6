// Runs the client for a release, which has to get out even when whoever wants it stops waiting.
#pragma once

#include <sys/types.h>

// Runs argv[0] as a child; its exit code, or 128 and the signal that ended it. A request to stop, or the end
// of `parent`, is not passed on: the child has 3 s from then to finish, and is killed after that. It does not
// outlive this process. The limit begins with the request since a release that nobody wants to stop is
// limited by its own retransmissions.
int runRelease(char* const* argv, pid_t parent);
