// What a value from outside may look like: names, addresses and prefixes of a DHCP answer or of a
// configuration.
//
// A function that ends in "Fault" returns what is wrong with the value, in words that a message can put
// behind the value, or "" when nothing is. None of them throws, and none depends on the locale.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/model/values/Wire.h"

namespace Grammar {

inline constexpr std::size_t maxDomainName = 253;  // bytes (RFC 1035, section 2.3.4, without the final dot)

// A host or domain name of at most `maxLength` bytes: labels of 1 to 63 letters, digits and hyphens with a
// dot between them; no label begins or ends with a hyphen (RFC 1123, section 2.1).
std::string nameFault(std::string_view name, std::size_t maxLength);
inline std::string nameFault(std::string_view name) { return nameFault(name, maxDomainName); }

// The name or URL of a boot file: at most 4,096 printable ASCII characters.
std::string fileNameFault(std::string_view name);

// A DHCP unique identifier (RFC 8415, 11), octets in hexadecimal joined by colons, with two digits for each;
// nothing for what is none.
std::optional<std::string> duid(std::string_view text);

// The name of a network device, as the kernel takes it: at most 15 bytes, no blank and no slash.
std::string deviceNameFault(std::string_view name);

// The address of one machine that others can reach: neither of "this network", loopback, multicast, broadcast
// nor reserved (RFC 6890), and for IPv6 not link-local either, since such an address says nothing without its
// link.
std::string hostFault(Wire::IpAddr const& address);
std::string hostFault(Wire::Ip6Addr const& address);

// The address that a port is given: one of a host, but IPv6 may be link-local; the mask is not empty, since
// that would route everything to the port.
std::string portAddressFault(Wire::IpGenAddrWithMask const& address);

// The destination of a route: the prefix of hosts' addresses, or one that is shorter than 8 bits and covers
// more than "this network", as the default route does. Bits behind the mask are allowed.
std::string prefixFault(Wire::IpAddrWithMask const& prefix);

// The prefix with the bits behind its mask cleared: servers send them, and they mean nothing (RFC 3442).
Wire::IpAddrWithMask withoutHostBits(Wire::IpAddrWithMask prefix);

// The length of a mask; nothing for one that is empty or has holes.
std::optional<std::uint8_t> maskLength(Wire::IpAddr mask);
// The length of the mask that belongs to the address's class (RFC 791), for an answer that has no mask.
std::uint8_t classMaskLength(Wire::IpAddr address);

// Whether it is one of 169.254.0.0/16 (RFC 3927) or fe80::/10 (RFC 4291).
bool isLinkLocal(Wire::Ip6Addr const& address);
bool isLinkLocal(Wire::IpGenAddrWithMask const& address);

// The URL, or a text that may be one, as people may see it: the password before the "@" of its authority (RFC
// 3986, 3.2.1) is replaced by "***".
std::string withoutPasswords(std::string url);

}  // namespace Grammar
