#include "platform/linux/RouterAdvertisement.h"

#include "platform/kel/Format.h"

namespace Linux {

namespace {

constexpr int requiredHopLimit = 255;  // a message that no router can have forwarded
constexpr std::size_t headerLength = 16;
constexpr std::uint8_t typeRouterAdvertisement = 134;
constexpr std::size_t optionUnit = 8;
constexpr std::uint8_t managedFlag = 0x80;
constexpr std::uint8_t otherFlag = 0x40;

bool isLinkLocal(Wire::Ip6Addr const& address) {
  return address.bytes[0] == 0xfe && (address.bytes[1] & 0xc0) == 0x80;
}

// Each option gives its length in its second byte.
Kel::String checkOptions(std::span<std::uint8_t const> options) {
  while (!options.empty()) {
    if (options.size() < 2) return "option cut off";
    std::size_t const length = options[1] * optionUnit;
    if (length == 0) return "option of length 0";
    if (length > options.size()) return "option longer than the message";
    options = options.subspan(length);
  }
  return {};
}

}  // namespace

Kel::String parseRouterAdvertisement(std::span<std::uint8_t const> message, int hopLimit,
                                     Wire::Ip6Addr const& source, RouterAdvertisement& out) {
  if (hopLimit != requiredHopLimit) return Kel::format("hop limit %d", hopLimit);
  if (!isLinkLocal(source)) return "source " + source.stringValue() + " is not link-local";
  if (message.size() < headerLength) return Kel::format("only %u bytes", message.size());
  if (message[0] != typeRouterAdvertisement) return Kel::format("type %u", message[0]);
  if (message[1] != 0) return Kel::format("code %u", message[1]);
  if (auto reason = checkOptions(message.subspan(headerLength)); !reason.empty()) return reason;
  out.managed = (message[5] & managedFlag) != 0;
  out.other = (message[5] & otherFlag) != 0;
  out.lifetime = static_cast<Kel::Seconds>(message[6] << 8 | message[7]);
  return {};
}

}  // namespace Linux
