#include "programs/zerotouch-dhclient-script/Checks.h"

#include <algorithm>
#include <bit>
#include <charconv>

namespace Hook {

namespace {

constexpr std::size_t longestName = 253;
constexpr std::size_t longestLabel = 63;
constexpr std::size_t longestFileName = 4096;
constexpr std::size_t longestDevice = 15;

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

std::string wrongWithLabel(std::string_view label) {
  if (label.empty()) return "an empty label";
  if (label.size() > longestLabel) return "a label longer than " + std::to_string(longestLabel) + " bytes";
  if (!isLetterOrDigit(label.front()) || !isLetterOrDigit(label.back()))
    return "a label begins or ends with something else than a letter or a digit";
  if (!std::ranges::all_of(label, [](char c) { return isLetterOrDigit(c) || c == '-'; }))
    return "something else than letters, digits, dashes and dots";
  return {};
}

std::string longerThan(std::size_t limit) { return "longer than " + std::to_string(limit) + " bytes"; }

}  // namespace

bool isPrintable(char c) { return c >= ' ' && c <= '~'; }

std::string wrongWithName(std::string_view name) {
  if (name.size() > longestName) return longerThan(longestName);
  for (std::size_t begin = 0; begin <= name.size();) {
    std::size_t const end = std::min(name.find('.', begin), name.size());
    if (auto wrong = wrongWithLabel(name.substr(begin, end - begin)); !wrong.empty()) return wrong;
    begin = end + 1;
  }
  return {};
}

std::string wrongWithFileName(std::string_view name) {
  if (name.size() > longestFileName) return longerThan(longestFileName);
  return std::ranges::all_of(name, isPrintable) ? "" : "something else than printable ASCII characters";
}

std::string wrongWithDevice(std::string_view name) {
  if (name.empty()) return "empty";
  if (name.size() > longestDevice) return longerThan(longestDevice);
  bool const isName = name != "." && name != ".." && std::ranges::all_of(name, [](char c) {
                        return isPrintable(c) && c != ' ' && c != '/';
                      });
  return isName ? "" : "nothing that a device can be called";
}

std::string wrongWith(Wire::IpAddr const& address) {
  std::uint32_t const first = address.value >> 24;
  if (first == 0) return "of no machine";
  if (first == 127) return "a loopback address";
  if (first >= 224) return "a multicast, broadcast or reserved address";
  return {};
}

std::string wrongWith(Wire::Ip6Addr const& address) {
  auto const& bytes = address.bytes;
  bool const startsWithZeroes =
      std::all_of(bytes.begin(), bytes.begin() + 10, [](std::uint8_t byte) { return byte == 0; });
  if (startsWithZeroes) return "of no machine, a loopback or an embedded IPv4 address";
  if (bytes[0] == 0xff) return "a multicast address";
  if (bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80) return "a link-local address";
  return {};
}

std::optional<std::uint32_t> number(std::string_view text, std::uint32_t least, std::uint32_t most) {
  std::uint32_t result = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
  bool const isNumber = error == std::errc() && end == text.data() + text.size();
  return isNumber && result >= least && result <= most ? std::optional(result) : std::nullopt;
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

}  // namespace Hook
