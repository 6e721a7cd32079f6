// The configuration of dhcpcd (dhcpcd.conf(5)).
#pragma once

#include "programs/zerotouch-dhclient/Arguments.h"
#include "programs/zerotouch-dhclient/dhcpcd/Wishes.h"

// Has dhcpcd ask what `wishes` say, and report it to the script without a change to the system. The script
// gets the options as the bytes that they had on the wire, in variables that are called by their codes: of
// DHCPv4 new_o67, of DHCPv6 new_dhcp6_o59, each a list of decimal numbers.
//
// dhcpcd 9 cannot send the vendor options of DHCPv6 (option 17). What they hold goes out as the vendor class
// (option 16), with the same enterprise number.
std::string configurationOf(Wishes const& wishes, Arguments const& asked);
