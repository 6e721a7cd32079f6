#include "platform/linux/links/Netlink.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include <array>
#include <cstring>

namespace Linux {

namespace {

template <int Max>
using Attributes = std::array<nlattr*, Max + 1>;

template <int Max>
std::optional<Attributes<Max>> attributes(nlmsghdr* message, int headerSize) {
  Attributes<Max> result{};
  if (nlmsg_parse(message, headerSize, result.data(), Max, nullptr) < 0) return std::nullopt;
  return result;
}

Kel::String text(nlattr* attribute) {
  if (attribute == nullptr) return {};
  auto const* data = static_cast<char const*>(nla_data(attribute));
  return {data, strnlen(data, static_cast<std::size_t>(nla_len(attribute)))};
}

// The number that the attribute holds, 0 when it is absent or too short for one.
template <typename Number>
Number number(nlattr* attribute) {
  Number result = 0;
  if (attribute != nullptr && nla_len(attribute) >= static_cast<int>(sizeof result)) {
    std::memcpy(&result, nla_data(attribute), sizeof result);
  }
  return result;
}

Kel::String kindOf(nlattr* linkInfo) {
  Attributes<IFLA_INFO_MAX> info{};
  if (linkInfo == nullptr || nla_parse_nested(info.data(), IFLA_INFO_MAX, linkInfo, nullptr) < 0) return "";
  return text(info[IFLA_INFO_KIND]);
}

}  // namespace

std::optional<Link> linkFromMessage(nlmsghdr* message) {
  auto const attribute = attributes<IFLA_MAX>(message, sizeof(ifinfomsg));
  if (!attribute) return std::nullopt;
  auto const& header = *static_cast<ifinfomsg const*>(nlmsg_data(message));
  if (header.ifi_family != AF_UNSPEC || header.ifi_index <= 0 || (*attribute)[IFLA_IFNAME] == nullptr) {
    return std::nullopt;
  }

  Link link;
  link.ifIndex = header.ifi_index;
  link.type = header.ifi_type;
  link.flags = header.ifi_flags;
  link.name = text((*attribute)[IFLA_IFNAME]);
  link.operState = number<std::uint8_t>((*attribute)[IFLA_OPERSTATE]);
  link.carrier = number<std::uint8_t>((*attribute)[IFLA_CARRIER]) != 0;
  link.mtu = number<std::uint32_t>((*attribute)[IFLA_MTU]);
  link.master = number<std::int32_t>((*attribute)[IFLA_MASTER]);
  nlattr* const mac = (*attribute)[IFLA_ADDRESS];
  if (mac != nullptr && nla_len(mac) == static_cast<int>(link.macAddr.bytes.size())) {
    std::memcpy(link.macAddr.bytes.data(), nla_data(mac), link.macAddr.bytes.size());
  }
  link.kind = kindOf((*attribute)[IFLA_LINKINFO]);
  return link;
}

std::optional<LinkAddress> addressFromMessage(nlmsghdr* message) {
  auto const attribute = attributes<IFA_MAX>(message, sizeof(ifaddrmsg));
  if (!attribute) return std::nullopt;
  auto const& header = *static_cast<ifaddrmsg const*>(nlmsg_data(message));

  LinkAddress result;
  result.ifIndex = static_cast<int>(header.ifa_index);
  nlattr* const wide = (*attribute)[IFA_FLAGS];
  result.flags = wide != nullptr ? number<std::uint32_t>(wide) : header.ifa_flags;
  // IFA_ADDRESS is the other end's address on a point-to-point device; IFA_LOCAL is then our own.
  nlattr* const own =
      (*attribute)[IFA_LOCAL] != nullptr ? (*attribute)[IFA_LOCAL] : (*attribute)[IFA_ADDRESS];
  if (own == nullptr) return std::nullopt;
  if (header.ifa_family == AF_INET && nla_len(own) == 4) {
    result.address = Wire::IpAddrWithMask{{ntohl(number<std::uint32_t>(own))}, header.ifa_prefixlen};
    return result;
  }
  if (header.ifa_family == AF_INET6 && nla_len(own) == 16) {
    Wire::Ip6AddrWithMask address{{}, header.ifa_prefixlen};
    std::memcpy(address.address.bytes.data(), nla_data(own), 16);
    result.address = address;
    return result;
  }
  return std::nullopt;
}

}  // namespace Linux
