// What an LLDP frame tells of the neighbour: names that people may see, whatever it holds.
#include "zerotouch/intf/LldpNeighbour.h"

#include <gtest/gtest.h>

namespace {

std::string entry(int kind, std::string const& value) {
  return std::string{static_cast<char>(kind << 1 | static_cast<int>(value.size() >> 8)),
                     static_cast<char>(value.size())} +
         value;
}

TEST(LldpNeighbour, IsNamedInPrintableCharacters) {
  std::string const chassis = entry(1, "\4abcdef");
  std::string const address = entry(2, std::string("\3\2\0\0\0\0\1", 7));
  struct Case {
    std::string message, system, port;
  };
  for (auto const& [message, system, port] : std::vector<Case>{
           {chassis + entry(2, "\5Ethernet7") + entry(5, "spine-1") + entry(0, "") + entry(5, "later"),
            "spine-1", "Ethernet7"},
           {address, "", "02:00:00:00:00:01"},
           {address + entry(4, "to leaf 7"), "", "to leaf 7"},
           {entry(2, "\7x") + entry(4, "described"), "", "x"},
           {entry(5, "\033[2Ja\nb"), "?[2Ja?b", ""},
           {entry(5, std::string(500, 'x')), std::string(64, 'x') + "...", ""},
           {entry(5, "whole") + std::string("\x05\xff"
                                            "cut",
                                            5),
            "whole", ""},
           {entry(2, "\5") + "\x0a", "", ""},
           {"", "", ""}}) {
    auto const* const begin = reinterpret_cast<std::uint8_t const*>(message.data());
    auto const neighbour = ZeroTouch::neighbourOf({begin, message.size()});
    EXPECT_EQ(neighbour.system, system);
    EXPECT_EQ(neighbour.port, port);
  }
}

}  // namespace
