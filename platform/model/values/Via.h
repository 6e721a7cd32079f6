// A next hop of a route.
#pragma once

#include <compare>
#include <optional>
#include <string_view>

#include "platform/model/values/Wire.h"

namespace Routing {

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
