#include "programs/zerotouch/rehearse/Options.h"

#include <algorithm>
#include <array>
#include <optional>

#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"

namespace Rehearsal {

namespace {

constexpr std::array kinds4 = {
    OptionKind{1, "subnet-mask", "subnet mask", Form::addresses},
    OptionKind{3, "routers", "routers", Form::addresses},
    OptionKind{6, "domain-name-servers", "name servers", Form::addresses},
    OptionKind{7, "log-servers", "log servers", Form::addresses},
    OptionKind{12, "host-name", "host name", Form::text},
    OptionKind{15, "domain-name", "domain", Form::text},
    OptionKind{26, "interface-mtu", "MTU", Form::number},
    OptionKind{28, "broadcast-address", "broadcast address", Form::addresses},
    OptionKind{33, "static-routes", "static routes", Form::pairs},
    OptionKind{51, "dhcp-lease-time", "lease time in seconds", Form::number},
    OptionKind{53, "dhcp-message-type", "message type", Form::number},
    OptionKind{54, "dhcp-server-identifier", "server", Form::addresses},
    OptionKind{55, "dhcp-parameter-request-list", "options asked for", Form::list8},
    OptionKind{58, "dhcp-renewal-time", "renewal time in seconds", Form::number},
    OptionKind{59, "dhcp-rebinding-time", "rebinding time in seconds", Form::number},
    OptionKind{60, "vendor-class-identifier", "vendor class", Form::text},
    OptionKind{61, "dhcp-client-identifier", "client identifier", Form::octets},
    OptionKind{66, "tftp-server-name", "TFTP server", Form::text},
    OptionKind{67, "bootfile-name", "boot file", Form::text},
    OptionKind{121, "rfc3442-classless-static-routes", "classless routes", Form::routes}};

constexpr std::array kinds6 = {
    OptionKind{1, "dhcp6.client-id", "client identifier", Form::octets},
    OptionKind{2, "dhcp6.server-id", "server", Form::octets},
    OptionKind{3, "dhcp6.ia-na", "address", Form::octets},
    OptionKind{6, "dhcp6.oro", "options asked for", Form::list16},
    OptionKind{7, "dhcp6.preference", "preference", Form::number},
    OptionKind{8, "dhcp6.elapsed-time", "elapsed time", Form::number},
    OptionKind{13, "dhcp6.status-code", "status", Form::status},
    OptionKind{17, "dhcp6.vendor-opts", "vendor options", Form::octets},
    OptionKind{23, "dhcp6.name-servers", "name servers", Form::addresses6},
    OptionKind{24, "dhcp6.domain-search", "search list", Form::domains},
    OptionKind{32, "dhcp6.info-refresh-time", "refresh time in seconds", Form::number},
    OptionKind{59, "dhcp6.bootfile-url", "boot file", Form::text},
    OptionKind{82, "dhcp6.solmax-rt", "longest pause of solicitations", Form::number},
    OptionKind{83, "dhcp6.inf-max-rt", "longest pause of information requests", Form::number}};

std::span<OptionKind const> kinds(bool six) {
  return six ? std::span<OptionKind const>(kinds6) : std::span<OptionKind const>(kinds4);
}

// All but letters and digits as octal numbers, of which the script makes the bytes again.
std::string escaped(BytesView value) {
  std::string result;
  for (std::uint8_t const byte : value) {
    if ((byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z')) {
      result += static_cast<char>(byte);
      continue;
    }
    result += '\\';
    for (int const digit : {byte >> 6, byte >> 3 & 7, byte & 7}) result += static_cast<char>('0' + digit);
  }
  return result;
}

std::string address6(BytesView value) {
  Wire::Ip6Addr address;
  std::ranges::copy(value, address.bytes.begin());
  return address.stringValue();
}

// Hands each whole member of a list to `text`, and puts blanks between them.
template <typename Text>
std::string list(BytesView value, std::size_t length, Text const& text) {
  std::string result;
  for (; value.size() >= length; value = value.subspan(length))
    result += (result.empty() ? "" : " ") + text(value.first(length));
  return result;
}

// The names, each with a dot at its end (RFC 8415, section 10); ends at what is malformed.
std::string domains(BytesView value) {
  std::string result, name;
  while (!value.empty()) {
    std::size_t const length = value[0];
    if (length > 63 || value.size() < 1 + length) break;
    if (length == 0) {
      if (!name.empty()) result += (result.empty() ? "" : " ") + name;
      name.clear();
    } else {
      name += escaped(value.subspan(1, length)) + ".";
    }
    value = value.subspan(1 + length);
  }
  return result;
}

std::string address4(BytesView four);

// Classless routes (RFC 3442) for people; ends at what is malformed.
std::string routes(BytesView value) {
  std::string result;
  while (!value.empty() && value[0] <= Wire::IpAddr::maxMaskLength) {
    std::size_t const bytes = (value[0] + 7U) / 8U;
    if (value.size() < 1 + bytes + 4) break;
    Bytes target(value.begin() + 1, value.begin() + 1 + static_cast<std::ptrdiff_t>(bytes));
    target.resize(4);
    result += (result.empty() ? "" : ", ") + address4(target) + Kel::format("/%u by ", value[0]) +
              address4(value.subspan(1 + bytes, 4));
    value = value.subspan(1 + bytes + 4);
  }
  return result;
}

// A status of DHCPv6 (RFC 8415, 21.13): a number, and a text.
std::string status(BytesView value) {
  if (value.size() < 2) return octets(value);
  return std::to_string(number(value, 0, 2)) + " " + std::string(value.begin() + 2, value.end());
}

std::string words(Form form, BytesView value) {
  switch (form) {
    case Form::text:
      // Some servers put a NUL at its end, which means nothing.
      while (!value.empty() && value.back() == 0) value = value.first(value.size() - 1);
      return {value.begin(), value.end()};
    case Form::routes:
      return routes(value);
    case Form::status:
      return status(value);
    default:
      return scriptText(form, value);
  }
}

std::string address4(BytesView four) { return Wire::IpAddr{number(four, 0, 4)}.stringValue(); }

}  // namespace

OptionKind const* optionKind(bool six, unsigned code) {
  auto const all = kinds(six);
  auto const found = std::ranges::find(all, code, &OptionKind::code);
  return found != all.end() ? &*found : nullptr;
}

OptionKind const* optionNamed(bool six, std::string_view name) {
  auto const all = kinds(six);
  auto const found =
      std::ranges::find(all, name, [](auto const& kind) { return std::string_view(kind.name); });
  return found != all.end() ? &*found : nullptr;
}

std::uint32_t number(BytesView bytes, std::size_t at, std::size_t length) {
  std::uint32_t result = 0;
  for (std::uint8_t const byte : bytes.subspan(at, length)) result = result << 8 | byte;
  return result;
}

void append(Bytes& bytes, std::uint32_t number, std::size_t length) {
  for (std::size_t i = length; i > 0; --i) bytes.push_back(static_cast<std::uint8_t>(number >> 8 * (i - 1)));
}

std::string octets(BytesView value) {
  std::string result;
  for (std::uint8_t const byte : value) result += (result.empty() ? "" : ":") + Kel::format("%02x", byte);
  return result;
}

std::string scriptText(Form form, BytesView value) {
  switch (form) {
    case Form::octets:
    case Form::status:
      return octets(value);
    case Form::text:
      return escaped(value);
    case Form::addresses:
    case Form::pairs:
      return list(value, 4, address4);
    case Form::addresses6:
      return list(value, 16, address6);
    case Form::number:
      return value.empty() || value.size() > 4 ? "" : std::to_string(number(value, 0, value.size()));
    case Form::list8:
    case Form::routes:
      return list(value, 1, [](BytesView one) { return std::to_string(one[0]); });
    case Form::list16:
      return list(value, 2, [](BytesView two) { return std::to_string(number(two, 0, 2)); });
    case Form::domains:
      return domains(value);
  }
  return {};
}

std::string optionTitle(bool six, unsigned code) {
  auto const* const kind = optionKind(six, code);
  return Kel::format("option %u", code) + (kind != nullptr ? Kel::String(", ") + kind->words : "");
}

std::string optionWords(bool six, unsigned code, BytesView value) {
  constexpr std::size_t longest = 400;
  auto const* const kind = optionKind(six, code);
  Form const form = kind != nullptr ? kind->form : Form::octets;
  std::string result = Kel::printable(Grammar::withoutPasswords(words(form, value)), longest);
  std::ranges::replace_if(
      result, [](char c) { return c < ' ' || c > '~'; }, '?');
  return result;
}

}  // namespace Rehearsal
