// Router advertisements: the hop limit, 16 bytes of source address, the message.
#include "platform/linux/packets/RouterAdvertisements.h"
#include "tests/fuzz/Fuzz.h"

void fuzz(std::string_view input) {
  constexpr std::size_t messageAt = 17;
  if (input.size() < messageAt) return;
  std::vector<std::uint8_t> const bytes(input.begin(), input.end());
  std::span const message = std::span(bytes).subspan(messageAt);
  Wire::Ip6Addr source;
  std::copy_n(bytes.begin() + 1, source.bytes.size(), source.bytes.begin());

  Linux::RouterAdvertisement out{.managed = true, .other = true, .lifetime = -1};
  if (!Linux::parseRouterAdvertisement(message, bytes[0], source, out).empty()) {
    KEL_ASSERT(out.managed && out.other && out.lifetime == -1, "a refused message changes nothing");
    return;
  }
  KEL_ASSERT(bytes[0] == 255 && bytes[1] == 0xfe && bytes[2] >> 6 == 2, "of a neighbour, from its fe80::/10");
  KEL_ASSERT(message.size() >= 16 && message.size() % 8 == 0, "whole options");
  KEL_ASSERT(message[0] == 134 && message[1] == 0, "a router advertisement");
  KEL_ASSERT(out.managed == (message[5] >> 7 & 1) && out.other == (message[5] >> 6 & 1), "its flags");
  KEL_ASSERT(out.lifetime == message[6] * 256 + message[7], "its lifetime");
}
