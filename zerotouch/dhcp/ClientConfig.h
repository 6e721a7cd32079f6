// What a DHCP client of the agent asks for and says of itself, as the text of its configuration: a template,
// and statements that tell the server which switch is asking.
#pragma once

#include "platform/kel/Types.h"
#include "platform/model/entitymib.h"

namespace ZeroTouch {

// The templates, installed with the system. Both IPv6 clients use the same.
inline constexpr char const* dhclientBaseConfigPath = "/usr/share/ZeroTouch/zerotouch-dhclient.conf";
inline constexpr char const* dhclient6BaseConfigPath = "/usr/share/ZeroTouch/zerotouch-dhclient6.conf";

// The statements that follow the template, a line each. `version` is "v4" or "v6".
Kel::String identifierStatements(Wire::EthAddr const& systemMacAddr, EntityMib::Fru const& chassis,
                                 Kel::String const& version);

}  // namespace ZeroTouch
