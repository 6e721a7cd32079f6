// By what DHCPv6 servers know the switch, made of the configuration that the agent has written.
#pragma once

#include <string>
#include <string_view>

// What the line of a lease file begins with that holds the identifier.
inline constexpr std::string_view identifierKeyword = "default-duid ";

// The MAC address that the text of a configuration sends as the client's identifier; empty when that is none.
std::string addressIn(std::string const& config);

// The line of a lease file with the identifier, a DUID-LL (RFC 8415, 11.4) of that address as octets in
// hexadecimal joined by colons; empty without the address.
std::string identifierIn(std::string const& config);
