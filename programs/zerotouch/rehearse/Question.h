// What a switch asks its DHCP servers for and says of itself, read from the configuration that the agent
// writes for its DHCP client.
#pragma once

#include <map>
#include <stdexcept>

#include "platform/model/entitymib.h"
#include "programs/zerotouch/rehearse/Options.h"

namespace Rehearsal {

// A configuration that cannot be read, or that holds what nothing is made of here.
class BadConfiguration : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Question {
  std::vector<unsigned> wanted;    // the codes of the options that are asked for, in their order
  std::map<unsigned, Bytes> sent;  // options that are sent, by code
  Bytes identifier;                // for DHCPv6: the DUID
};

// `configuration` is the text of such a file. Of two equal statements the last one counts, as for the client;
// statements about times and servers are passed over. Throws BadConfiguration.
Question questionOf(std::string const& configuration, bool six);

// Of the switch with that identity, by the template at `path`. Throws BadConfiguration.
Question questionOf(Wire::EthAddr const& systemMacAddr, EntityMib::Fru const& chassis,
                    std::string const& path, bool six);

}  // namespace Rehearsal
