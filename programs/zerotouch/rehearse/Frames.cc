#include "programs/zerotouch/rehearse/Frames.h"

#include <algorithm>

namespace Rehearsal {

namespace {

constexpr std::uint32_t ip = 0x0800, ip6 = 0x86dd, udp = 17, icmp6 = 58;
constexpr std::size_t ethernetBytes = 14, ip4Bytes = 20, ip6Bytes = 40, udpBytes = 8, neighbourBytes = 24;
constexpr std::uint32_t clientPort4 = 68, serverPort4 = 67, clientPort6 = 546, serverPort6 = 547;
constexpr std::uint8_t routerSolicits = 133, routerAdvertises = 134, neighbourSolicits = 135,
                       neighbourAdvertises = 136;
constexpr std::uint32_t ofTheLink = 255;  // the hop limit by which such messages are known
constexpr Wire::EthAddr everybody{{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};
constexpr Wire::Ip6Addr allRouters{{0xff, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}};
constexpr Wire::Ip6Addr allServers{{0xff, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2}};

void join(Bytes& bytes, BytesView more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

// The sum of RFC 1071 over all parts, each of which but the last has an even length.
std::uint32_t checksum(std::initializer_list<BytesView> parts) {
  std::uint32_t sum = 0;
  for (BytesView const part : parts) {
    for (std::size_t i = 0; i < part.size(); ++i) sum += part[i] << (i % 2 == 0 ? 8 : 0);
    while (sum > 0xffff) sum = (sum >> 16) + (sum & 0xffff);
  }
  return ~sum & 0xffff;
}

void put(Bytes& bytes, std::size_t at, std::uint32_t value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value);
}

Bytes ethernet(Wire::EthAddr const& to, Wire::EthAddr const& from, std::uint32_t type) {
  Bytes frame(to.bytes.begin(), to.bytes.end());
  join(frame, from.bytes);
  append(frame, type, 2);
  return frame;
}

Bytes udpHeader(std::uint32_t from, std::uint32_t to, std::size_t bytes) {
  Bytes header;
  for (auto const field : {from, to, static_cast<std::uint32_t>(udpBytes + bytes), 0U})
    append(header, field, 2);
  return header;
}

// What a checksum covers besides the packet: the addresses, the length and the protocol.
Bytes pseudoHeader6(Wire::Ip6Addr const& from, Wire::Ip6Addr const& to, std::size_t bytes,
                    std::uint32_t protocol) {
  Bytes header(from.bytes.begin(), from.bytes.end());
  join(header, to.bytes);
  append(header, static_cast<std::uint32_t>(bytes), 4);
  append(header, protocol, 4);
  return header;
}

// `body` begins with the header of the protocol, whose checksum at `checksumAt` is still 0.
Bytes packet6(Wire::EthAddr const& port, Wire::EthAddr const& neighbour, Wire::Ip6Addr const& to, Bytes body,
              std::uint32_t protocol, std::size_t checksumAt, std::uint32_t hopLimit) {
  auto const from = linkLocal(port);
  put(body, checksumAt, checksum({pseudoHeader6(from, to, body.size(), protocol), body}));
  Bytes frame = ethernet(neighbour, port, ip6);
  append(frame, 0x60000000, 4);
  append(frame, static_cast<std::uint32_t>(body.size()), 2);
  append(frame, protocol, 1);
  append(frame, hopLimit, 1);
  join(frame, from.bytes);
  join(frame, to.bytes);
  join(frame, body);
  return frame;
}

Wire::EthAddr multicast(Wire::Ip6Addr const& group) {
  return {{0x33, 0x33, group.bytes[12], group.bytes[13], group.bytes[14], group.bytes[15]}};
}

// A message between neighbours: its type, four bytes, an address if there is one, and our link-layer address.
Bytes neighbourMessage(std::uint8_t type, std::uint32_t flags, BytesView target, std::uint8_t option,
                       Wire::EthAddr const& port) {
  Bytes body{type, 0, 0, 0};
  append(body, flags, 4);
  join(body, target);
  join(body, Bytes{option, 1});
  join(body, port.bytes);
  return body;
}

std::optional<Packet> readPacket4(BytesView frame) {
  BytesView packet = frame.subspan(ethernetBytes);
  if (packet.size() < ip4Bytes || packet[0] >> 4 != 4 || packet[9] != udp) return std::nullopt;
  std::size_t const header = (packet[0] & 15U) * 4U;
  std::size_t const length = number(packet, 2, 2);
  if (header < ip4Bytes || length < header + udpBytes || length > packet.size()) return std::nullopt;
  BytesView const datagram = packet.subspan(header, length - header);
  std::size_t const bytes = number(datagram, 4, 2);
  if (number(datagram, 2, 2) != clientPort4 || bytes < udpBytes || bytes > datagram.size())
    return std::nullopt;
  return Packet{.kind = Packet::Kind::dhcp4,
                .from = Wire::IpAddr{number(packet, 12, 4)}.stringValue(),
                .source = {},
                .neighbour = {},
                .hopLimit = packet[8],
                .payload = datagram.subspan(udpBytes, bytes - udpBytes)};
}

// Checksums of UDP are not looked at: between two ports of one machine they are often left to the hardware.
std::optional<Packet> readPacket6(BytesView frame) {
  BytesView const packet = frame.subspan(ethernetBytes);
  if (packet.size() < ip6Bytes || packet[0] >> 4 != 6) return std::nullopt;
  std::size_t const length = number(packet, 4, 2);
  if (length < udpBytes || length > packet.size() - ip6Bytes) return std::nullopt;
  BytesView const body = packet.subspan(ip6Bytes, length);
  Packet result{.kind = Packet::Kind::dhcp6,
                .from = {},
                .source = {},
                .neighbour = {},
                .hopLimit = packet[7],
                .payload = body};
  Wire::Ip6Addr to;
  std::ranges::copy(packet.subspan(8, 16), result.source.bytes.begin());
  std::ranges::copy(packet.subspan(24, 16), to.bytes.begin());
  std::ranges::copy(frame.subspan(6, 6), result.neighbour.bytes.begin());
  result.from = result.source.stringValue();
  if (packet[6] == udp) {
    std::size_t const bytes = number(body, 4, 2);
    if (number(body, 2, 2) != clientPort6 || bytes < udpBytes || bytes > body.size()) return std::nullopt;
    result.payload = body.subspan(udpBytes, bytes - udpBytes);
    return result;
  }
  bool const isOne = packet[6] == icmp6 && (body[0] == routerAdvertises || body[0] == neighbourSolicits);
  if (!isOne || checksum({pseudoHeader6(result.source, to, body.size(), icmp6), body}) != 0)
    return std::nullopt;
  result.kind =
      body[0] == routerAdvertises ? Packet::Kind::routerAdvertisement : Packet::Kind::neighbourSolicitation;
  return result;
}

}  // namespace

Wire::Ip6Addr linkLocal(Wire::EthAddr const& port) {
  auto const& mac = port.bytes;
  return {{0xfe, 0x80, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(mac[0] ^ 2), mac[1], mac[2], 0xff, 0xfe,
           mac[3], mac[4], mac[5]}};
}

Bytes frame4(Wire::EthAddr const& port, BytesView message) {
  Bytes header{0x45, 0x10};  // low delay, as the client asks for
  append(header, static_cast<std::uint32_t>(ip4Bytes + udpBytes + message.size()), 2);
  append(header, 0, 4);
  append(header, 128, 1);
  append(header, udp, 1);
  append(header, 0, 2);
  append(header, 0, 4);
  append(header, 0xffffffff, 4);
  put(header, 10, checksum({header}));
  Bytes datagram = udpHeader(clientPort4, serverPort4, message.size());
  Bytes pseudo(header.begin() + 12, header.end());
  append(pseudo, udp, 2);
  append(pseudo, static_cast<std::uint32_t>(udpBytes + message.size()), 2);
  put(datagram, 6, checksum({pseudo, datagram, message}));
  Bytes frame = ethernet(everybody, port, ip);
  join(frame, header);
  join(frame, datagram);
  join(frame, message);
  return frame;
}

Bytes frame6(Wire::EthAddr const& port, BytesView message) {
  Bytes body = udpHeader(clientPort6, serverPort6, message.size());
  join(body, message);
  return packet6(port, multicast(allServers), allServers, body, udp, 6, 1);
}

Bytes routerSolicitation(Wire::EthAddr const& port) {
  Bytes const body = neighbourMessage(routerSolicits, 0, {}, 1, port);
  return packet6(port, multicast(allRouters), allRouters, body, icmp6, 2, ofTheLink);
}

std::optional<Packet> readFrame(BytesView frame) {
  if (frame.size() < ethernetBytes) return std::nullopt;
  std::uint32_t const type = number(frame, 12, 2);
  if (type == ip) return readPacket4(frame);
  return type == ip6 ? readPacket6(frame) : std::nullopt;
}

std::optional<Bytes> neighbourAdvertisement(Wire::EthAddr const& port, Packet const& solicitation) {
  constexpr std::uint32_t solicitedAndOverrides = 0x60000000;
  auto const own = linkLocal(port);
  if (solicitation.payload.size() < neighbourBytes || solicitation.hopLimit != ofTheLink ||
      solicitation.source.isZero() || !std::ranges::equal(solicitation.payload.subspan(8, 16), own.bytes))
    return std::nullopt;
  Bytes const body = neighbourMessage(neighbourAdvertises, solicitedAndOverrides, own.bytes, 2, port);
  return packet6(port, solicitation.neighbour, solicitation.source, body, icmp6, 2, ofTheLink);
}

}  // namespace Rehearsal
