// Network value types: interface ids, MAC and IP addresses. Plain values with a text form; fromString accepts
// exactly what stringValue writes (and what inet_pton(3) accepts) and gives nothing for anything else.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/kel/Types.h"

namespace Wire {

// Identifies an interface by the name that the switch shows, so that it survives a device that comes back.
class IntfId {
 public:
  static constexpr std::string_view typeName = "interface id";

  IntfId() = default;
  explicit IntfId(Kel::String name) : name_(std::move(name)) {}

  Kel::String const& stringValue() const { return name_; }
  // Any name of 1 to 64 bytes.
  static std::optional<IntfId> fromString(std::string_view text);
  explicit operator bool() const { return !name_.empty(); }

  auto operator<=>(IntfId const&) const = default;

 private:
  Kel::String name_;
};

// A 48-bit MAC address; text form "02:1a:b3:0a:0b:0c".
struct EthAddr {
  static constexpr std::string_view typeName = "MAC address";

  std::array<std::uint8_t, 6> bytes{};

  Kel::String stringValue() const;
  static std::optional<EthAddr> fromString(std::string_view text);
  auto operator<=>(EthAddr const&) const = default;
};

// An IPv4 address in host byte order.
struct IpAddr {
  static constexpr std::string_view typeName = "IPv4 address";
  static constexpr std::uint8_t maxMaskLength = 32;

  std::uint32_t value = 0;

  bool isZero() const { return value == 0; }
  Kel::String stringValue() const;
  static std::optional<IpAddr> fromString(std::string_view text);
  auto operator<=>(IpAddr const&) const = default;
};

// An IPv6 address in network byte order.
struct Ip6Addr {
  static constexpr std::string_view typeName = "IPv6 address";
  static constexpr std::uint8_t maxMaskLength = 128;

  std::array<std::uint8_t, 16> bytes{};

  bool isZero() const { return *this == Ip6Addr{}; }
  Kel::String stringValue() const;
  static std::optional<Ip6Addr> fromString(std::string_view text);
  auto operator<=>(Ip6Addr const&) const = default;
};

// An address and the length of its mask; text form "10.0.0.5/24". The address keeps its host bits. The
// default, 0.0.0.0/0 or ::/0, means none.
template <typename Addr>
struct WithMask {
  static constexpr std::string_view typeName =
      Addr::maxMaskLength == 32 ? "IPv4 address with mask" : "IPv6 address with mask";

  Addr address;
  std::uint8_t maskLength = 0;

  Kel::String stringValue() const { return address.stringValue() + "/" + std::to_string(maskLength); }
  static std::optional<WithMask> fromString(std::string_view text);
  auto operator<=>(WithMask const&) const = default;
};
using IpAddrWithMask = WithMask<IpAddr>;
using Ip6AddrWithMask = WithMask<Ip6Addr>;

// A value of either family; the default is the IPv4 zero.
template <typename V4, typename V6>
class Generic {
 public:
  static constexpr std::string_view typeName =
      V4::typeName == IpAddr::typeName ? "IP address" : "IP address with mask";

  Generic() = default;
  Generic(V4 value) : value_(value) {}
  Generic(V6 value) : value_(value) {}

  bool isV6() const { return value_.index() == 1; }
  // The value of that family; zero when it is of the other one.
  V4 v4() const { return isV6() ? V4{} : std::get<V4>(value_); }
  V6 v6() const { return isV6() ? std::get<V6>(value_) : V6{}; }

  Kel::String stringValue() const { return isV6() ? v6().stringValue() : v4().stringValue(); }
  static std::optional<Generic> fromString(std::string_view text) {
    if (auto const v4 = V4::fromString(text)) return Generic(*v4);
    if (auto const v6 = V6::fromString(text)) return Generic(*v6);
    return std::nullopt;
  }
  auto operator<=>(Generic const&) const = default;

 private:
  std::variant<V4, V6> value_;
};
using IpGenAddr = Generic<IpAddr, Ip6Addr>;
using IpGenAddrWithMask = Generic<IpAddrWithMask, Ip6AddrWithMask>;

}  // namespace Wire

namespace Routing {

// A next hop of a route.
// Text form "10.0.0.1", or "10.0.0.1@Ethernet1" when the interface is given too.
struct Via {
  static constexpr std::string_view typeName = "next hop";

  Wire::IpAddr hop;
  Wire::IntfId intf;  // empty: found by the route to `hop`

  Kel::String stringValue() const {
    return intf ? hop.stringValue() + "@" + intf.stringValue() : hop.stringValue();
  }
  static std::optional<Via> fromString(std::string_view text) {
    std::size_t const at = text.find('@');
    auto const hop = Wire::IpAddr::fromString(text.substr(0, at));
    if (!hop) return std::nullopt;
    if (at == std::string_view::npos) return Via{*hop, {}};
    auto const intf = Wire::IntfId::fromString(text.substr(at + 1));
    if (!intf) return std::nullopt;
    return Via{*hop, *intf};
  }
  auto operator<=>(Via const&) const = default;
};

}  // namespace Routing
