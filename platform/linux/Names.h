// Names that come from outside, and what may be done with them.
#pragma once

#include <set>
#include <string_view>

#include "platform/kel/Types.h"

namespace Linux {

inline constexpr std::size_t maxDomainName = 253;  // bytes

// "" or what is wrong with it as a name of at most `maxLength` bytes: labels of 1 to 63 letters, digits and
// hyphens, none at their ends, with dots between them (RFC 1123).
Kel::String hostNameFault(std::string_view name, std::size_t maxLength);

// Short enough for a message, and without anything that a terminal or a log could take amiss.
Kel::String printable(std::string_view text);

// Warns of values that are of no use, and hence dropped: of each once for as long as it is there.
class Dropped {
 public:
  // Around a look at all the values there are.
  void begin() { before_.swap(now_), now_.clear(); }
  // `what` it is, as "host name".
  void add(char const* what, std::string_view value, std::string_view fault);

 private:
  std::set<Kel::String> before_;
  std::set<Kel::String> now_;
};

}  // namespace Linux
