// The values of options as the ISC client hands them to its script, made of their bytes on the wire.
#pragma once

#include <string>

namespace Hook::Form {

// All but letters and digits as a backslash and three octal digits.
std::string text(std::string const& bytes);

// With blanks between the addresses; what is left over at the end counts for nothing.
std::string addresses4(std::string const& bytes);
std::string addresses6(std::string const& bytes);

// Of the first two bytes; nothing when there are fewer.
std::string number16(std::string const& bytes);

// Each byte as a number, with blanks between them.
std::string decimals(std::string const& bytes);

// Names as DNS writes them (RFC 1035, 3.1), without compression (RFC 8415, 10), each with a dot behind it.
// Nothing when they do not end with the option. A byte that is no part of a name is escaped.
std::string domains(std::string const& bytes);

}  // namespace Hook::Form
