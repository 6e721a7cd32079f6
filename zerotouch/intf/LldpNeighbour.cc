#include "zerotouch/intf/LldpNeighbour.h"

#include <algorithm>

#include "platform/kel/Format.h"

namespace ZeroTouch {

namespace {

using Bytes = std::span<std::uint8_t const>;

// The kinds of entries (IEEE 802.1AB, table 8-1) that are read here.
constexpr unsigned endOfMessage = 0;
constexpr unsigned portId = 2;
constexpr unsigned portDescription = 4;
constexpr unsigned systemName = 5;

// What a port id consists of (table 8-3), where it is a text.
constexpr unsigned interfaceAlias = 1;
constexpr unsigned interfaceName = 5;
constexpr unsigned locallyAssigned = 7;

constexpr std::size_t longestName = 64;  // bytes that are kept

Kel::String text(Bytes bytes) {
  Kel::String const all(bytes.begin(), bytes.end());
  return Kel::printable(all.substr(0, all.find('\0')), longestName);
}

Kel::String octets(Bytes bytes) {
  Kel::String result;
  for (auto const byte : bytes.first(std::min(bytes.size(), longestName / 3)))
    result += Kel::format(result.empty() ? "%02x" : ":%02x", unsigned{byte});
  return result;
}

Kel::String portName(Bytes bytes) {
  if (bytes.size() < 2) return "";
  unsigned const kind = bytes[0];
  bool const isText = kind == interfaceAlias || kind == interfaceName || kind == locallyAssigned;
  return isText ? text(bytes.subspan(1)) : octets(bytes.subspan(1));
}

}  // namespace

LldpNeighbour neighbourOf(Bytes message) {
  LldpNeighbour result;
  Kel::String description;
  while (message.size() >= 2) {
    unsigned const kind = message[0] >> 1U;
    std::size_t const length = (message[0] & 1U) << 8U | message[1];
    if (kind == endOfMessage || length > message.size() - 2) break;
    Bytes const value = message.subspan(2, length);
    message = message.subspan(2 + length);
    if (kind == portId) result.port = portName(value);
    if (kind == portDescription) description = text(value);
    if (kind == systemName) result.system = text(value);
  }
  // Many name their ports in the description only, and have an address as the port's id.
  bool const isAddress = std::ranges::count(result.port, ':') == 5;
  if (!description.empty() && (result.port.empty() || isAddress)) result.port = description;
  return result;
}

}  // namespace ZeroTouch
