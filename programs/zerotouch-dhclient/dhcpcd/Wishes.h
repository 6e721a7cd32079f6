// What a configuration of the ISC client asks for (dhclient.conf(5)), as far as the agent uses it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

struct Wishes {
  std::map<std::string, std::string> sent;  // the bytes of what is sent, by the option's name
  std::vector<unsigned> options;            // the codes of what is asked for, in their order
  std::vector<std::string> unknown;         // options that are asked for, whose code nobody says
  unsigned timeout = 60;                    // seconds after which a port has failed
  std::vector<std::string> rejected;        // servers that are not heard
  std::map<std::string, std::vector<std::string>> rejectedOn;  // the same, by device
};

// Of statements of which there can be one, the last counts. What the agent never writes is passed over.
Wishes wishesIn(std::string_view config);
