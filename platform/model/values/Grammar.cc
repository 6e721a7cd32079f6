#include "platform/model/values/Grammar.h"

#include <algorithm>
#include <bit>

namespace Grammar {

namespace {

constexpr std::size_t maxLabel = 63;
constexpr std::size_t maxFileName = 4096;
constexpr std::size_t maxDeviceName = 15;

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isPrintable(char c) { return c >= ' ' && c <= '~'; }

std::string longerThan(std::size_t limit) { return "longer than " + std::to_string(limit) + " bytes"; }

std::string labelFault(std::string_view label) {
  if (label.empty()) return "an empty label";
  if (label.size() > maxLabel) return "a label " + longerThan(maxLabel);
  if (!isLetterOrDigit(label.front()) || !isLetterOrDigit(label.back()))
    return "a label begins or ends with something else than a letter or a digit";
  if (!std::ranges::all_of(label, [](char c) { return isLetterOrDigit(c) || c == '-'; }))
    return "something else than letters, digits, dashes and dots";
  return {};
}

// What is wrong with an address for one port; a link-local one may be right.
std::string portFault(Wire::Ip6Addr const& address) {
  auto const& bytes = address.bytes;
  bool const startsWithZeroes =
      std::all_of(bytes.begin(), bytes.begin() + 10, [](std::uint8_t byte) { return byte == 0; });
  if (startsWithZeroes) return "of no machine, a loopback or an embedded IPv4 address";
  return bytes[0] == 0xff ? "a multicast address" : "";
}

}  // namespace

std::string nameFault(std::string_view name, std::size_t maxLength) {
  if (name.size() > maxLength) return longerThan(maxLength);
  for (std::size_t begin = 0; begin <= name.size();) {
    std::size_t const end = std::min(name.find('.', begin), name.size());
    if (auto fault = labelFault(name.substr(begin, end - begin)); !fault.empty()) return fault;
    begin = end + 1;
  }
  return {};
}

std::string fileNameFault(std::string_view name) {
  if (name.size() > maxFileName) return longerThan(maxFileName);
  return std::ranges::all_of(name, isPrintable) ? "" : "something else than printable ASCII characters";
}

std::optional<std::string> duid(std::string_view text) {
  constexpr std::size_t leastOctets = 3, mostOctets = 130;
  constexpr std::string_view digits = "0123456789abcdef";
  std::string result;
  for (std::size_t octets = 1;; ++octets) {
    std::string_view const octet = text.substr(0, text.find(':'));
    if (octet.empty() || octet.size() > 2 || octets > mostOctets) return std::nullopt;
    if (octet.size() == 1) result += '0';
    for (char const c : octet) {
      char const lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
      if (digits.find(lower) == digits.npos) return std::nullopt;
      result += lower;
    }
    if (octet.size() == text.size()) return octets < leastOctets ? std::nullopt : std::optional(result);
    text.remove_prefix(octet.size() + 1);
    result += ':';
  }
}

std::string deviceNameFault(std::string_view name) {
  if (name.empty()) return "empty";
  if (name.size() > maxDeviceName) return longerThan(maxDeviceName);
  bool const isName = name != "." && name != ".." && std::ranges::all_of(name, [](char c) {
                        return isPrintable(c) && c != ' ' && c != '/';
                      });
  return isName ? "" : "nothing that a device can be called";
}

std::string hostFault(Wire::IpAddr const& address) {
  std::uint32_t const first = address.value >> 24;
  if (first == 0) return "of no machine";
  if (first == 127) return "a loopback address";
  return first >= 224 ? "a multicast, broadcast or reserved address" : "";
}

std::string hostFault(Wire::Ip6Addr const& address) {
  return isLinkLocal(address) ? "a link-local address" : portFault(address);
}

std::string portAddressFault(Wire::IpGenAddrWithMask const& address) {
  auto const v4 = address.v4();
  auto const v6 = address.v6();
  if ((address.isV6() ? v6.maskLength : v4.maskLength) == 0) return "an address without a mask";
  return address.isV6() ? portFault(v6.address) : hostFault(v4.address);
}

std::string prefixFault(Wire::IpAddrWithMask const& prefix) {
  if (prefix.maskLength > Wire::IpAddr::maxMaskLength) return "not a prefix";
  bool const isShort = prefix.maskLength < 8 && prefix.address.value >> 24 == 0;
  return isShort ? "" : hostFault(prefix.address);
}

Wire::IpAddrWithMask withoutHostBits(Wire::IpAddrWithMask prefix) {
  prefix.address.value &= prefix.maskLength == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix.maskLength);
  return prefix;
}

std::optional<std::uint8_t> maskLength(Wire::IpAddr mask) {
  int const length = std::countl_one(mask.value);
  bool const hasHoles = length + std::countr_zero(mask.value) < Wire::IpAddr::maxMaskLength;
  if (length == 0 || hasHoles) return std::nullopt;
  return static_cast<std::uint8_t>(length);
}

std::uint8_t classMaskLength(Wire::IpAddr address) {
  std::uint32_t const first = address.value >> 24;
  return first < 128 ? 8 : first < 192 ? 16 : 24;
}

bool isLinkLocal(Wire::Ip6Addr const& address) {
  return address.bytes[0] == 0xfe && (address.bytes[1] & 0xc0) == 0x80;
}

bool isLinkLocal(Wire::IpGenAddrWithMask const& address) {
  return address.isV6() ? isLinkLocal(address.v6().address) : address.v4().address.value >> 16 == 0xa9fe;
}

std::string withoutPasswords(std::string url) {
  // An authority follows each "//", since a path can hold another URL. A text without a scheme begins with
  // one.
  for (std::size_t begin = 0;;) {
    std::size_t const end = std::min(url.find_first_of("/?#", begin), url.size());
    std::size_t const at = url.substr(0, end).rfind('@');
    std::size_t const colon = url.find(':', begin);
    if (at != std::string::npos && colon < at) url.replace(colon + 1, at - colon - 1, "***");
    std::size_t const next = url.find("//", begin);
    if (next == std::string::npos) return url;
    begin = next + 2;
  }
}

}  // namespace Grammar
