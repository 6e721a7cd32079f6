// Runs dhcpcd, and says on its behalf what it does not say itself.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct Watch {
  std::vector<std::string> client;       // dhcpcd and its arguments
  std::vector<std::string> environment;  // its variables
  unsigned patience = 0;                 // seconds until `late` is called; 0: never
  std::function<void()> late;
};

// Runs the client until it ends, and returns its exit code, or 128 plus the signal that ended it. Reaps all
// processes that have lost their parents, so this has to be the first one of its namespace.
int watchClient(Watch const& watch);

// Runs a program with these variables and no others, and does not wait for it.
void start(std::string const& program, std::vector<std::string> const& environment);
