// Where the real DHCP client is.
#pragma once

#include <string>
#include <vector>

// In the order in which they are tried: the one that ZEROTOUCH_REAL_DHCLIENT names, alone, else the usual
// ones.
std::vector<std::string> clientCandidates();

// The first candidate that can be executed and is not this program itself; empty when there is none.
std::string findClient(std::vector<std::string> const& candidates);
