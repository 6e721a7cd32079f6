// The options of DHCP messages: what they are called, and their values as the DHCP client hands them to its
// script, and as people read them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Rehearsal {

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<std::uint8_t const>;

// What the value of an option is made of.
enum class Form {
  octets,
  text,
  addresses,
  addresses6,
  number,
  list8,
  list16,
  pairs,
  domains,
  routes,
  status
};

struct OptionKind {
  unsigned code;
  char const* name;  // in the client's configuration and, in its way, among the variables of its script
  char const* words;
  Form form;
};

// Null for an option that is unknown here.
OptionKind const* optionKind(bool six, unsigned code);
OptionKind const* optionNamed(bool six, std::string_view name);

// As the client hands it to its script: a text is escaped, a list has blanks between its members. What does
// not make a whole member at the end is left out.
std::string scriptText(Form form, BytesView value);

// "option 67, boot file"
std::string optionTitle(bool six, unsigned code);
// The value for people: printable ASCII, and not longer than a few lines.
std::string optionWords(bool six, unsigned code, BytesView value);

// The octets in hexadecimal joined by colons, as in "00:03:00:01".
std::string octets(BytesView value);

// A number at a place that the caller knows to be there, in network byte order.
std::uint32_t number(BytesView bytes, std::size_t at, std::size_t length);
void append(Bytes& bytes, std::uint32_t number, std::size_t length);

}  // namespace Rehearsal
