#include "programs/zerotouch-dhclient-script/Answer.h"

#include "programs/zerotouch-dhclient-script/Lists.h"
#include "programs/zerotouch-dhclient-script/Routes.h"

namespace Hook {

namespace {

using Kel::Value;
using Kel::ValueMap;

constexpr std::uint32_t leastMtu = 68;
constexpr std::uint32_t mostMtu = 65535;
constexpr std::uint32_t logPort = 514;

class Reader {
 public:
  Reader(Environment const& environment, Complaints& complaints)
      : environment_(environment), complaints_(complaints) {}

  void addressV4() {
    std::string_view const text = plainOption(environment_, "ip-address");
    auto const address = Wire::IpAddr::fromString(text);
    if (auto const wrong = address ? wrongWith(*address) : "no IPv4 address"; !wrong.empty()) {
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
    if (auto const wrong = address ? wrongWith(*address) : "no IPv6 address"; !wrong.empty()) {
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

  // The client writes each with a dot at its end, and escapes what is in them in the way of DNS; no such
  // character can be in a host's name.
  void firstSearchDomain() {
    constexpr char const* option = "dhcp6.domain-search";
    auto const domains = words(plainOption(environment_, option));
    if (domains.empty()) return;
    std::string_view domain = domains.front();
    if (domain.ends_with('.')) domain.remove_suffix(1);
    if (auto const wrong = wrongWithName(domain); !wrong.empty()) {
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
    auto const length = mask ? maskLength(*mask) : std::nullopt;
    if (length) return *length;
    if (!text.empty()) complaints_.drop("subnet-mask", text, "no mask; that of the address's class is used");
    return classMaskLength(address);
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
  reader.addressV4();
  reader.mtu();
  reader.routes();
  reader.text("hostname", "host-name", wrongWithName);
  reader.nameServers<Wire::IpAddr>("domain-name-servers");
  reader.text("domainName", "domain-name", wrongWithName);
  reader.text("serverName", "tftp-server-name", wrongWithName);
  reader.logServers();
  // Option 67, else the field that BOOTP had for it.
  if (!reader.text("bootFileName", "bootfile-name", wrongWithFileName))
    reader.text("bootFileName", "filename", wrongWithFileName);
  return reader.take();
}

Kel::ValueMap answerV6(Environment const& environment, Complaints& complaints) {
  Reader reader(environment, complaints);
  reader.addressV6();
  reader.nameServers<Wire::Ip6Addr>("dhcp6.name-servers");
  reader.firstSearchDomain();
  reader.text("bootFileName", "dhcp6.bootfile-url", wrongWithFileName);
  return reader.take();
}

}  // namespace Hook
