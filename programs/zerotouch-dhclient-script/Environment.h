// The variables that the DHCP client hands to its script: "reason", "interface", and one for each option of
// the answer, whose name is the option's with "new_" before it and underscores for dashes and dots.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace Hook {

using Environment = std::map<std::string, std::string, std::less<>>;

// Of a null-terminated array of NAME=value.
Environment environmentOf(char const* const* variables);

// The value as the client wrote it; empty when there is none.
std::string_view variable(Environment const& environment, std::string_view name);

// The bytes that a text option had on the wire, without the NULs that some servers put at its end. The client
// writes a backslash before what a shell could take for its own, and other bytes as a backslash and three
// octal digits.
std::string unescaped(std::string_view text);

// A text option's bytes; empty when the answer had none.
std::string textOption(Environment const& environment, std::string_view option);
// Any other option, as the client wrote it.
std::string_view plainOption(Environment const& environment, std::string_view option);

}  // namespace Hook
