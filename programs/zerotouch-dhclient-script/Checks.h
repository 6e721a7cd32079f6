// What values from outside have to be like. Each check says what is wrong, or nothing: an empty string.
#pragma once

#include <string>
#include <string_view>

#include "platform/model/values/Wire.h"

namespace Hook {

// Of ASCII.
bool isPrintable(char c);

// A host or domain name by RFC 1123.
std::string wrongWithName(std::string_view name);
// A file's name or URL.
std::string wrongWithFileName(std::string_view name);
// The name of a network device.
std::string wrongWithDevice(std::string_view name);

// Addresses of one machine that others can reach.
std::string wrongWith(Wire::IpAddr const& address);
std::string wrongWith(Wire::Ip6Addr const& address);

// The number that is the whole text, when it is from `least` to `most`.
std::optional<std::uint32_t> number(std::string_view text, std::uint32_t least, std::uint32_t most);

// The length of a mask without holes.
std::optional<std::uint8_t> maskLength(Wire::IpAddr mask);
// By the address's class, for who is not told a mask.
std::uint8_t classMaskLength(Wire::IpAddr address);

}  // namespace Hook
