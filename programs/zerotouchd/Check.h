// What `zerotouchd --check` says of a configuration: what the host would do with it on this system.
#pragma once

#include <string>
#include <vector>

#include "programs/zerotouchd/config/HostConfig.h"

// What was found, as texts for people.
struct Forecast {
  std::string text;  // what the host would do: the ports, and what it runs
  // What does not fit to this system, each with file, line and key.
  std::vector<std::string> mistakes;
};

// Nothing is changed.
Forecast forecast(HostConfig const& config, TomlFiles const& read);
