#include "platform/model/values/Wire.h"

#include <arpa/inet.h>

#include <charconv>

#include "platform/kel/Format.h"

namespace Wire {

namespace {

constexpr std::size_t maxNameLength = 64;

// Reads the whole of `text` as a number of at most `max`. A decimal number has no leading zeros.
std::optional<std::uint8_t> number(std::string_view text, int base, unsigned max) {
  if (base == 10 && text.size() > 1 && text.front() == '0') return std::nullopt;
  unsigned value = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || end != text.data() + text.size() || value > max) return std::nullopt;
  return static_cast<std::uint8_t>(value);
}

// Calls inet_pton(3), which stops at a NUL, so a text that holds one is refused.
bool parseAddress(int family, std::string_view text, void* out) {
  return text.find('\0') == std::string_view::npos && inet_pton(family, Kel::String(text).c_str(), out) == 1;
}

}  // namespace

std::optional<IntfId> IntfId::fromString(std::string_view text) {
  if (text.empty() || text.size() > maxNameLength) return std::nullopt;
  return IntfId(Kel::String(text));
}

Kel::String EthAddr::stringValue() const {
  return Kel::format("%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4],
                     bytes[5]);
}

std::optional<EthAddr> EthAddr::fromString(std::string_view text) {
  constexpr std::size_t length = 17;
  if (text.size() != length) return std::nullopt;
  EthAddr result;
  for (std::size_t i = 0; i < result.bytes.size(); ++i) {
    auto const byte = number(text.substr(3 * i, 2), 16, 0xff);
    if (!byte || (i > 0 && text[3 * i - 1] != ':')) return std::nullopt;
    result.bytes[i] = *byte;
  }
  return result;
}

Kel::String IpAddr::stringValue() const {
  return Kel::format("%d.%d.%d.%d", value >> 24, value >> 16 & 0xff, value >> 8 & 0xff, value & 0xff);
}

std::optional<IpAddr> IpAddr::fromString(std::string_view text) {
  in_addr parsed{};
  if (!parseAddress(AF_INET, text, &parsed)) return std::nullopt;
  return IpAddr{ntohl(parsed.s_addr)};
}

Kel::String Ip6Addr::stringValue() const {
  std::array<char, INET6_ADDRSTRLEN> buffer{};
  inet_ntop(AF_INET6, bytes.data(), buffer.data(), buffer.size());
  return buffer.data();
}

std::optional<Ip6Addr> Ip6Addr::fromString(std::string_view text) {
  Ip6Addr result;
  if (!parseAddress(AF_INET6, text, result.bytes.data())) return std::nullopt;
  return result;
}

template <typename Addr>
std::optional<WithMask<Addr>> WithMask<Addr>::fromString(std::string_view text) {
  std::size_t const slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  auto const address = Addr::fromString(text.substr(0, slash));
  auto const length = number(text.substr(slash + 1), 10, Addr::maxMaskLength);
  if (!address || !length) return std::nullopt;
  return WithMask{*address, *length};
}

template struct WithMask<IpAddr>;
template struct WithMask<Ip6Addr>;

}  // namespace Wire
