// Ties the life of this process to that of its parent.
#pragma once

#include <sys/types.h>

// From now on the kernel sends us `signal` when `parent` ends. If it has ended already, we send it ourselves.
// The arrangement outlasts an exec, but is not inherited by children.
void dieWithParent(pid_t parent, int signal);
