// A release of the ISC client, which runs as a child of the shim.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// Runs arguments[0], with its arguments, as a child for a release, which has to get out even when whoever
// wants it stops waiting. Returns the child's exit code, or 128 plus the signal that ended it. A request to
// stop, or the end of `parent`, is not passed on: the child has 3 s from then to finish, and is killed after
// that. It does not outlive this process. Without such a request there is no limit, since the client itself
// limits how often it sends.
int runRelease(std::vector<std::string> const& arguments, pid_t parent);
