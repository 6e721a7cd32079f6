#include "programs/zerotouch-dhclient-script/Routes.h"

#include <algorithm>

#include "programs/zerotouch-dhclient-script/Lists.h"

namespace Hook {

namespace {

// Bounds the notification, which has to fit into one line of the state tree's socket.
constexpr std::size_t mostRoutes = 128;

Wire::IpAddr network(std::uint32_t address, std::uint8_t length) {
  return {length == 0 ? 0 : address & ~std::uint32_t{0} << (32 - length)};
}

void add(Routes& routes, Routes::Route const& route, std::string_view option, Complaints& complaints) {
  if (auto const wrong = wrongWith(route.nextHop); !wrong.empty()) {
    complaints.drop(option, route.prefix.stringValue() + " by " + route.nextHop.stringValue(),
                    "the next hop is " + wrong);
  } else if (route.prefix.maskLength == 0) {
    routes.gateways.push_back(route.nextHop);
  } else {
    routes.routes.push_back(route);
  }
}

// Bytes in decimal: per route the length of its mask, as many bytes of the destination as that covers, and
// the next hop.
class ClasslessReader {
 public:
  explicit ClasslessReader(std::string_view text) : words_(words(text)) {}

  bool atEnd() const { return next_ == words_.size(); }

  std::optional<Routes::Route> route() {
    auto const length = byte();
    if (!length || *length > Wire::IpAddr::maxMaskLength) return std::nullopt;
    auto const destination = leadingBytes((*length + 7) / 8);
    auto const hop = leadingBytes(4);
    if (!destination || !hop) return std::nullopt;
    auto const maskLength = static_cast<std::uint8_t>(*length);
    return Routes::Route{{network(*destination, maskLength), maskLength}, {*hop}};
  }

 private:
  std::optional<std::uint32_t> byte() { return atEnd() ? std::nullopt : number(words_[next_++], 0, 255); }

  // The first `count` bytes of an address.
  std::optional<std::uint32_t> leadingBytes(std::uint32_t count) {
    std::uint32_t address = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
      auto const next = byte();
      if (!next) return std::nullopt;
      address |= *next << (24 - 8 * i);
    }
    return address;
  }

  std::vector<std::string_view> words_;
  std::size_t next_ = 0;
};

Routes classlessRoutes(Environment const& environment, Complaints& complaints) {
  constexpr char const* option = "rfc3442-classless-static-routes";
  std::string_view const text = plainOption(environment, option);
  Routes result;
  for (ClasslessReader reader(text); !reader.atEnd();) {
    auto const route = reader.route();
    if (!route) {
      complaints.drop(option, text,
                      "cut short or malformed after " +
                          std::to_string(result.routes.size() + result.gateways.size()) + " usable routes");
      break;
    }
    add(result, *route, option, complaints);
  }
  limit(result.routes, mostRoutes, option, complaints);
  limit(result.gateways, mostAddresses, option, complaints);
  return result;
}

// A destination has no mask here: it is a network of its class, or one machine.
Wire::IpAddrWithMask classNetwork(Wire::IpAddr destination) {
  if (destination.isZero()) return {};
  std::uint8_t const length = classMaskLength(destination);
  bool const isNetwork = network(destination.value, length) == destination;
  return {destination, isNetwork ? length : Wire::IpAddr::maxMaskLength};
}

Routes classfulRoutes(Environment const& environment, Complaints& complaints) {
  constexpr char const* option = "static-routes";
  Routes result;
  auto const list = words(plainOption(environment, option));
  for (std::size_t i = 0; i < list.size(); i += 2) {
    auto const destination = Wire::IpAddr::fromString(list[i]);
    auto const hop = i + 1 < list.size() ? Wire::IpAddr::fromString(list[i + 1]) : std::nullopt;
    if (!destination || !hop) {
      complaints.drop(option, list[i], "no pair of IPv4 addresses");
      break;
    }
    if (auto const wrong = destination->isZero() ? "" : wrongWith(*destination); !wrong.empty()) {
      complaints.drop(option, list[i], "the destination is " + wrong);
      continue;
    }
    add(result, {classNetwork(*destination), *hop}, option, complaints);
  }
  limit(result.routes, mostRoutes, option, complaints);
  return result;
}

}  // namespace

Routes routesOf(Environment const& environment, Complaints& complaints) {
  Routes classless = classlessRoutes(environment, complaints);
  if (!classless.routes.empty() || !classless.gateways.empty()) return classless;
  Routes result = classfulRoutes(environment, complaints);
  auto const routers = addresses<Wire::IpAddr>(environment, "routers", complaints);
  result.gateways.insert(result.gateways.begin(), routers.begin(), routers.end());
  limit(result.gateways, mostAddresses, "routers", complaints);
  return result;
}

}  // namespace Hook
