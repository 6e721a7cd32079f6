#include "programs/zerotouch-dhclient-script/Answer.h"

#include <algorithm>

#include "platform/model/values/Grammar.h"

namespace Hook {

namespace {

using Kel::Value;
using Kel::ValueMap;

constexpr std::size_t mostAddresses = 8;

// Keeps the first `most`.
template <typename T>
void limit(std::vector<T>& list, std::size_t most, std::string_view option, Complaints& complaints) {
  if (list.size() <= most) return;
  complaints.add("option " + std::string(option) + " has " + std::to_string(list.size()) +
                 " entries: only the first " + std::to_string(most) + " are used");
  list.erase(list.begin() + static_cast<std::ptrdiff_t>(most), list.end());
}

// The addresses of an option that can be used.
template <typename Addr>
std::vector<Addr> addresses(Environment const& environment, std::string_view option, Complaints& complaints) {
  std::vector<Addr> result;
  for (std::string_view const word : words(plainOption(environment, option))) {
    auto const address = Addr::fromString(word);
    std::string const wrong = address ? Grammar::hostFault(*address) : "no " + std::string(Addr::typeName);
    if (wrong.empty()) {
      result.push_back(*address);
    } else {
      complaints.drop(option, word, wrong);
    }
  }
  limit(result, mostAddresses, option, complaints);
  return result;
}

// The routers and static routes of a DHCPv4 answer.
struct Routes {
  struct Route {
    Wire::IpAddrWithMask prefix;
    Wire::IpAddr nextHop;
  };
  std::vector<Route> routes;
  std::vector<Wire::IpAddr> gateways;  // next hops of the default route
};

// Bounds the message, which has to fit into one line of the state tree's socket.
constexpr std::size_t mostRoutes = 128;

// Without a next hop (0.0.0.0) the destination is on the link itself, which classless routes alone can say.
void addRoute(Routes& routes, Routes::Route const& route, std::string_view option, Complaints& complaints,
              bool mayBeOnLink = false) {
  bool const isOnLink = mayBeOnLink && route.nextHop.isZero();
  if (auto const wrong = isOnLink ? "" : Grammar::hostFault(route.nextHop); !wrong.empty()) {
    complaints.drop(option, route.prefix.stringValue() + " by " + route.nextHop.stringValue(),
                    "the next hop is " + wrong);
  } else if (route.prefix.maskLength == 0) {
    routes.gateways.push_back(route.nextHop);
  } else {
    routes.routes.push_back(route);
  }
}

// Reads classless routes: decimal bytes, for each route the length of its mask, as many bytes of the
// destination as the mask covers, and the next hop (RFC 3442).
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
    Wire::IpAddrWithMask const prefix{{*destination}, static_cast<std::uint8_t>(*length)};
    return Routes::Route{Grammar::withoutHostBits(prefix), {*hop}};
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
    addRoute(result, *route, option, complaints, true);
  }
  limit(result.routes, mostRoutes, option, complaints);
  limit(result.gateways, mostAddresses, option, complaints);
  return result;
}

// The destination of a classful route has no mask: it is a network of its class, or one machine.
Wire::IpAddrWithMask classNetwork(Wire::IpAddr destination) {
  if (destination.isZero()) return {};
  Wire::IpAddrWithMask const ofClass{destination, Grammar::classMaskLength(destination)};
  bool const isNetwork = Grammar::withoutHostBits(ofClass) == ofClass;
  return isNetwork ? ofClass : Wire::IpAddrWithMask{destination, Wire::IpAddr::maxMaskLength};
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
    auto const prefix = classNetwork(*destination);
    if (auto const wrong = Grammar::prefixFault(prefix); !wrong.empty()) {
      complaints.drop(option, list[i], "the destination is " + wrong);
      continue;
    }
    addRoute(result, {prefix, *hop}, option, complaints);
  }
  limit(result.routes, mostRoutes, option, complaints);
  return result;
}

// Classless static routes (RFC 3442) stand for all the others; where none of them is usable, it is as if they
// had not been sent. Otherwise the gateways are the routers, then the next hops of static routes (RFC 2132)
// to everywhere.
Routes routesOf(Environment const& environment, Complaints& complaints) {
  Routes classless = classlessRoutes(environment, complaints);
  if (!classless.routes.empty() || !classless.gateways.empty()) return classless;
  Routes result = classfulRoutes(environment, complaints);
  auto const routers = addresses<Wire::IpAddr>(environment, "routers", complaints);
  result.gateways.insert(result.gateways.begin(), routers.begin(), routers.end());
  limit(result.gateways, mostAddresses, "routers", complaints);
  return result;
}

constexpr std::uint32_t leastMtu = 68;
constexpr std::uint32_t mostMtu = 65535;
constexpr std::uint32_t logPort = 514;

class Reader {
 public:
  Reader(Environment const& environment, Complaints& complaints)
      : environment_(environment), complaints_(complaints) {}

  // A server that does not say who it is has no name; that is no mistake of any value that counts.
  void serverV4() {
    auto const address = Wire::IpAddr::fromString(plainOption(environment_, "dhcp-server-identifier"));
    if (address) add("server", address->stringValue());
  }
  void serverV6() {
    if (auto const duid = Grammar::duid(plainOption(environment_, "dhcp6.server-id"))) add("server", *duid);
  }

  void addressV4() {
    std::string_view const text = plainOption(environment_, "ip-address");
    auto const address = Wire::IpAddr::fromString(text);
    if (auto const wrong = address ? Grammar::hostFault(*address) : "no IPv4 address"; !wrong.empty()) {
      if (!text.empty()) complaints_.drop("ip-address", text, wrong);
      return;
    }
    add("addrWithMask", Wire::IpAddrWithMask{*address, maskFor(*address)}.stringValue());
  }

  void addressV6() {
    std::string_view const text = plainOption(environment_, "ip6-address");
    if (text.empty()) return;  // a stateless answer
    std::string_view const prefix = plainOption(environment_, "ip6-prefixlen");
    auto const address = Wire::Ip6Addr::fromString(text);
    auto const length = number(prefix, 1, Wire::Ip6Addr::maxMaskLength);
    if (auto const wrong = address ? Grammar::hostFault(*address) : "no IPv6 address"; !wrong.empty()) {
      complaints_.drop("ip6-address", text, wrong);
    } else if (!length) {
      complaints_.drop("ip6-prefixlen", prefix, "no number from 1 to 128, so the address has no use");
    } else {
      add("addrWithMask", Wire::Ip6AddrWithMask{*address, static_cast<std::uint8_t>(*length)}.stringValue());
    }
  }

  void mtu() {
    std::string_view const text = plainOption(environment_, "interface-mtu");
    if (text.empty()) return;
    if (auto const value = number(text, leastMtu, mostMtu)) {
      add("mtu", *value);
    } else {
      complaints_.drop("interface-mtu", text, "no number from 68 to 65535");
    }
  }

  void routes() {
    Routes const routes = routesOf(environment_, complaints_);
    ValueMap entries;
    for (auto const& route : routes.routes) {
      entries.emplace_back(
          std::to_string(entries.size()),
          ValueMap{{"prefix", route.prefix.stringValue()}, {"nextHop", route.nextHop.stringValue()}});
    }
    add("staticRoute", std::move(entries));
    add("gateway", numbered(routes.gateways));
  }

  template <typename Addr>
  void nameServers(std::string_view option) {
    add("nameServer", numbered(addresses<Addr>(environment_, option, complaints_)));
  }

  void logServers() {
    ValueMap entries;
    for (auto const& address : addresses<Wire::IpAddr>(environment_, "log-servers", complaints_)) {
      std::string const host = address.stringValue();
      entries.emplace_back(host, ValueMap{{"host", host}, {"port", logPort}});
    }
    add("loggingHost", std::move(entries));
  }

  using Check = std::string (*)(std::string_view);
  // False when the option brought nothing of use.
  bool text(char const* attribute, std::string_view option, Check check) {
    std::string value = textOption(environment_, option);
    if (value.empty()) return false;
    if (auto const wrong = check(value); !wrong.empty()) {
      complaints_.drop(option, value, wrong);
      return false;
    }
    add(attribute, std::move(value));
    return true;
  }

  // The client writes a dot behind each name and escapes special characters as DNS does; a name with such a
  // character is refused.
  void firstSearchDomain() {
    constexpr char const* option = "dhcp6.domain-search";
    auto const domains = words(plainOption(environment_, option));
    if (domains.empty()) return;
    std::string_view domain = domains.front();
    if (domain.ends_with('.')) domain.remove_suffix(1);
    if (auto const wrong = Grammar::nameFault(domain); !wrong.empty()) {
      complaints_.drop(option, domain, wrong);
    } else {
      add("domainName", domain);
    }
  }

  ValueMap take() { return std::move(attributes_); }

 private:
  void add(char const* attribute, Value value) { attributes_.emplace_back(attribute, std::move(value)); }
  void add(char const* attribute, ValueMap entries) {
    if (!entries.empty()) attributes_.emplace_back(attribute, std::move(entries));
  }

  std::uint8_t maskFor(Wire::IpAddr address) {
    std::string_view const text = plainOption(environment_, "subnet-mask");
    auto const mask = Wire::IpAddr::fromString(text);
    auto const length = mask ? Grammar::maskLength(*mask) : std::nullopt;
    if (length) return *length;
    if (!text.empty()) complaints_.drop("subnet-mask", text, "no mask; that of the address's class is used");
    return Grammar::classMaskLength(address);
  }

  template <typename Addr>
  static ValueMap numbered(std::vector<Addr> const& list) {
    ValueMap entries;
    for (auto const& address : list)
      entries.emplace_back(std::to_string(entries.size()), address.stringValue());
    return entries;
  }

  Environment const& environment_;
  Complaints& complaints_;
  ValueMap attributes_;
};

}  // namespace

Kel::ValueMap answerV4(Environment const& environment, Complaints& complaints) {
  Reader reader(environment, complaints);
  reader.serverV4();
  reader.addressV4();
  reader.mtu();
  reader.routes();
  reader.text("hostname", "host-name", Grammar::nameFault);
  reader.nameServers<Wire::IpAddr>("domain-name-servers");
  reader.text("domainName", "domain-name", Grammar::nameFault);
  reader.text("serverName", "tftp-server-name", Grammar::nameFault);
  reader.logServers();
  // Option 67 counts before the field that BOOTP had for the file's name.
  if (!reader.text("bootFileName", "bootfile-name", Grammar::fileNameFault))
    reader.text("bootFileName", "filename", Grammar::fileNameFault);
  return reader.take();
}

Kel::ValueMap answerV6(Environment const& environment, Complaints& complaints) {
  Reader reader(environment, complaints);
  reader.serverV6();
  reader.addressV6();
  reader.nameServers<Wire::Ip6Addr>("dhcp6.name-servers");
  reader.firstSearchDomain();
  reader.text("bootFileName", "dhcp6.bootfile-url", Grammar::fileNameFault);
  return reader.take();
}

}  // namespace Hook
