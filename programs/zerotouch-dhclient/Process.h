// Processes and their lives.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

constexpr int cannotExecute = 127;

// From now on the kernel sends this process `signal` when `parent` ends. If it has ended already, the process
// sends the signal to itself. The arrangement outlasts an exec, but is not inherited by children.
void dieWithParent(pid_t parent, int signal);

// Becomes the program arguments[0], with these arguments, and returns only if that fails, after a complaint.
void become(std::vector<std::string> const& arguments);
// The same with these variables, and no others.
void become(std::vector<std::string> const& arguments, std::vector<std::string> const& environment);
